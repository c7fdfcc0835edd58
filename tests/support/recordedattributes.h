#pragma once

#include <string>
#include <vector>

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

    bool isReading() const override { return false; }
    bool isWriting() const override { return true; }
    bool omitsDefaults() const override { return omitsDefaults_; }
    bool beginContainer(const char *, const char * attributeName) override {
        prefix_ += std::string(attributeName) + ".";
        return true;
    }
    void endContainer(const char *, const char * attributeName) override {
        prefix_.resize(prefix_.size() - std::string(attributeName).size() - 1);
    }
    void enterObject() override {}
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
    void superclassReference(const NBX::ID &) override {}
    void beginSuperclass(const char *) override { ++parents_; }
    void endSuperclass(const char *) override { --parents_; }

private:
    explicit RecordedAttributes(bool omitsDefaults) : omitsDefaults_(omitsDefaults) {}

    bool record(const char * name) {
        if (parents_ == 0) names_.push_back(prefix_ + name);
        return true;
    }

    bool omitsDefaults_;
    int parents_ = 0;
    std::string prefix_;
    std::vector<std::string> names_;
};
