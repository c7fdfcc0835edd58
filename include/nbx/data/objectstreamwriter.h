#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <nbx/object/serializationmanager.h>

namespace NBX {

/// Writes an object, and what hangs on it, as a block of bytes; docs/object-stream.md tells the form.
/// Objects are written one behind the other, not inside each other, so that chains of any length are no
/// recursion. An object whose class is not registered is left out as null and reported at level 2.
class ObjectStreamWriter : public SerializationManager {
public:
    /// Throws `IOException` when the class of `root` is not registered.
    static std::vector<std::uint8_t> write(const SharedObj & root, bool omitsDefaults = true);

    bool isReading() const override { return false; }
    bool isWriting() const override { return true; }
    bool omitsDefaults() const override { return omitsDefaults_; }
    bool beginContainer(const char * typeName, const char * attributeName) override;
    void endContainer(const char * typeName, const char * attributeName) override;
    void enterObject() override {}
    bool rawAttribute(const char * name, void * pointer, std::uint64_t bytes) override;

    using SerializationManager::attribute;
    bool attribute(const char * name, bool & value) override;
    bool attribute(const char * name, int & value) override;
    bool attribute(const char * name, unsigned & value) override;
    bool attribute(const char * name, unsigned short & value) override;
    bool attribute(const char * name, std::uint64_t & value) override;
    bool attribute(const char * name, float & value) override;
    bool attribute(const char * name, double & value) override;
    bool attribute(const char * name, std::wstring & value) override;
    bool attribute(const char * name, Vector3Base<double> & value) override;
    bool attribute(const char * name, Bounds & value) override;
    bool attribute(const char * name, Matrix4x4Base<double> & value) override;
    bool attribute(const char * name, SO<SharedObj> & value) override;

    void separateValues() override {}
    void superclassReference(const ID &) override {}
    void beginSuperclass(const char * typeName) override;
    void endSuperclass(const char * typeName) override;

private:
    explicit ObjectStreamWriter(bool omitsDefaults) : omitsDefaults_(omitsDefaults) {}

    std::uint64_t reference(SharedObj * object);
    std::uint64_t nameNumber(const char * name);
    void beginRecord(std::uint8_t type, const char * name);
    void beginSection(std::uint8_t type, const char * name);
    void endSection();
    std::vector<std::uint8_t> assembled() const;

    struct ObjectEntry {
        SO<SharedObj> object;
        std::uint64_t className = 0;
        std::uint64_t bytes = 0;
    };

    bool omitsDefaults_;
    std::vector<std::uint8_t> body_;
    std::vector<std::size_t> openSections_; ///< where their sizes stand in `body_`
    std::vector<std::string> names_;
    std::unordered_map<std::string, std::uint64_t> nameNumbers_;
    std::deque<ObjectEntry> objects_;
    std::unordered_map<const SharedObj *, std::uint64_t> objectNumbers_; ///< from 1
    std::unordered_set<ID> refusedClasses_;
};

} // namespace NBX
