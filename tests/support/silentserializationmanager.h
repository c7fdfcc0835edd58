#pragma once

#include <nbx/object/serializationmanager.h>

/// Takes what is written and keeps nothing: for what `serialize` reports.
class SilentSerializationManager : public NBX::SerializationManager {
public:
    bool isReading() const override { return false; }
    bool isWriting() const override { return true; }
    bool omitsDefaults() const override { return false; }
    bool beginContainer(const char *, const char *) override { return false; }
    void endContainer(const char *, const char *) override {}
    void enterObject() override {}
    bool rawAttribute(const char *, void *, std::uint64_t) override { return false; }
    bool attribute(const char *, bool &) override { return false; }
    bool attribute(const char *, int &) override { return false; }
    bool attribute(const char *, unsigned &) override { return false; }
    bool attribute(const char *, unsigned short &) override { return false; }
    bool attribute(const char *, std::uint64_t &) override { return false; }
    bool attribute(const char *, float &) override { return false; }
    bool attribute(const char *, double &) override { return false; }
    bool attribute(const char *, std::wstring &) override { return false; }
    bool attribute(const char *, NBX::Vector3Base<double> &) override { return false; }
    bool attribute(const char *, NBX::Bounds &) override { return false; }
    bool attribute(const char *, NBX::Matrix4x4Base<double> &) override { return false; }
    bool attribute(const char *, NBX::SO<NBX::SharedObj> &) override { return false; }
    void separateValues() override {}
    void superclassReference(const NBX::ID &) override {}
    void beginSuperclass(const char *) override {}
    void endSuperclass(const char *) override {}
};
