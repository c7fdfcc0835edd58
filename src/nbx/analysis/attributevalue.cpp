#include "attributevalue.h"

#include <cstdint>
#include <cstring>

#include <nbx/image/encodedimage.h>
#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

namespace {

/// Writes an object alone, not what hangs on it.
class ValueWriter : public SerializationManager {
public:
    std::string value;

    bool isReading() const override { return false; }
    bool isWriting() const override { return true; }
    bool omitsDefaults() const override { return false; }
    bool beginContainer(const char *, const char * name) override { return append(name); }
    void endContainer(const char *, const char *) override {}
    void enterObject() override {}
    bool rawAttribute(const char * name, void * pointer, std::uint64_t bytes) override {
        return append(name, pointer, bytes);
    }

    using SerializationManager::attribute;
    bool attribute(const char * name, bool & v) override { return appendValue(name, v); }
    bool attribute(const char * name, int & v) override { return appendValue(name, v); }
    bool attribute(const char * name, unsigned & v) override { return appendValue(name, v); }
    bool attribute(const char * name, unsigned short & v) override { return appendValue(name, v); }
    bool attribute(const char * name, std::uint64_t & v) override { return appendValue(name, v); }
    bool attribute(const char * name, float & v) override { return appendValue(name, v); }
    bool attribute(const char * name, double & v) override { return appendValue(name, v); }
    bool attribute(const char * name, std::wstring & v) override {
        if (std::strcmp(name, "objectName") == 0) return true;
        return append(name, v.data(), v.size() * sizeof(wchar_t));
    }
    bool attribute(const char * name, Vector3Base<double> & v) override { return appendValue(name, v); }
    bool attribute(const char * name, Bounds & v) override {
        Vector3Base<double> corners[] = {v.getLLF(), v.getURB()};
        return append(name, corners, sizeof corners);
    }
    bool attribute(const char * name, Matrix4x4Base<double> & v) override { return appendValue(name, v); }
    bool attribute(const char * name, SO<SharedObj> & v) override {
        const auto * image = dynamic_cast<const EncodedImage *>(v.get());
        if (image && !image->fileName().empty())
            return append(name, image->fileName().data(), image->fileName().size());
        const auto address = reinterpret_cast<std::uintptr_t>(v.get());
        return append(name, &address, sizeof address);
    }

    void separateValues() override {}
    void superclassReference(const ID &) override {}
    void beginSuperclass(const char *) override {}
    void endSuperclass(const char *) override {}

private:
    bool append(const char * name, const void * bytes = nullptr, std::uint64_t size = 0) {
        value.append(name, std::strlen(name) + 1);
        value.append(reinterpret_cast<const char *>(&size), sizeof size);
        if (size > 0) value.append(static_cast<const char *>(bytes), size);
        return true;
    }
    template <class T> bool appendValue(const char * name, const T & v) { return append(name, &v, sizeof v); }
};

} // namespace

std::string valueOf(const RenderObj & object) {
    if (!object.isRegisteredForSerialization()) return {};
    ValueWriter writer;
    writer.value = std::string(object.classInfoNBX()->name().text()) + '\n';
    // Writing changes nothing; the operation is not const as it reads as well.
    const_cast<RenderObj &>(object).serialize(writer);
    return writer.value;
}

} // namespace NBX
