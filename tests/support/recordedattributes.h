#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <cxxabi.h>

#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/serializationmanager.h>

/// Writes an object to nowhere and lists the names of its attributes in their order. Names of a container's
/// values have the container's name in front: "domain.x".
class RecordedAttributes : public NBX::SerializationManager {
public:
    /// Those of the class itself, without those of its parents.
    static std::vector<std::string> of(NBX::SharedObj & object, bool omitsDefaults = false) {
        RecordedAttributes recorder(omitsDefaults);
        object.serialize(recorder);
        return recorder.names_;
    }

    /// All calls of the class and its parents: "enter", "begin Parent", "end Parent", "reference Parent" with
    /// names as `ClassInfo` has them, and of each attribute its name. Where `isWriting` is false, nothing is
    /// read either.
    static std::vector<std::string> calls(NBX::SharedObj & object, bool isWriting) {
        RecordedAttributes recorder(false);
        recorder.isWriting_ = isWriting;
        object.serialize(recorder);
        return recorder.calls_;
    }

    bool isReading() const override { return false; }
    bool isWriting() const override { return isWriting_; }
    bool omitsDefaults() const override { return omitsDefaults_; }
    bool beginContainer(const char *, const char * attributeName) override {
        prefix_ += std::string(attributeName) + ".";
        return true;
    }
    void endContainer(const char *, const char * attributeName) override {
        prefix_.resize(prefix_.size() - std::string(attributeName).size() - 1);
    }
    void enterObject() override { calls_.emplace_back("enter"); }
    bool rawAttribute(const char * name, void *, std::uint64_t) override { return record(name); }

    using NBX::SerializationManager::attribute;
    bool attribute(const char * name, bool &) override { return record(name); }
    bool attribute(const char * name, int &) override { return record(name); }
    bool attribute(const char * name, unsigned &) override { return record(name); }
    bool attribute(const char * name, unsigned short &) override { return record(name); }
    bool attribute(const char * name, std::uint64_t &) override { return record(name); }
    bool attribute(const char * name, float &) override { return record(name); }
    bool attribute(const char * name, double &) override { return record(name); }
    bool attribute(const char * name, std::wstring &) override { return record(name); }
    bool attribute(const char * name, NBX::Vector3Base<double> &) override { return record(name); }
    bool attribute(const char * name, NBX::Bounds &) override { return record(name); }
    bool attribute(const char * name, NBX::Matrix4x4Base<double> &) override { return record(name); }
    bool attribute(const char * name, NBX::SO<NBX::SharedObj> &) override { return record(name); }

    void separateValues() override {}
    void superclassReference(const NBX::ID & name) override {
        calls_.push_back("reference " + std::string(name.text()));
    }
    void beginSuperclass(const char * typeName) override {
        ++parents_;
        calls_.push_back("begin " + demangled(typeName));
    }
    void endSuperclass(const char * typeName) override {
        --parents_;
        calls_.push_back("end " + demangled(typeName));
    }

private:
    explicit RecordedAttributes(bool omitsDefaults) : omitsDefaults_(omitsDefaults) {}

    static std::string demangled(const char * typeName) {
        int status = 0;
        const std::unique_ptr<char, void (*)(void *)> text(
            abi::__cxa_demangle(typeName, nullptr, nullptr, &status), std::free);
        return text ? text.get() : typeName;
    }

    bool record(const char * name) {
        calls_.emplace_back(name);
        if (parents_ == 0) names_.push_back(prefix_ + name);
        return true;
    }

    bool omitsDefaults_, isWriting_ = true;
    int parents_ = 0;
    std::string prefix_;
    std::vector<std::string> names_, calls_;
};
