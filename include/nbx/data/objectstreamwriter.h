#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <nbx/object/attributeruns.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

class File;

/// Writes an object, and what hangs on it, as a block of bytes; docs/object-stream.md tells the form.
/// Objects are written one behind the other, not inside each other, so that chains of any length are no
/// recursion. An object whose class is not registered is left out as null and reported at level 2. Numbers of
/// one name and type that follow each other become a run, however they are given.
class ObjectStreamWriter : public SerializationManager, public AttributeRuns {
public:
    /// Of the bodies of the objects.
    enum class Form { Plain, Deflated };

    /// Throws `IOException` when the class of `root` is not registered.
    static std::vector<std::uint8_t> write(const SharedObj & root, bool omitsDefaults = true,
                                           Form form = Form::Plain);
    /// The same to a file, from its present position, which must be the start; only the tables are kept in
    /// memory. Throws `IOException` also where the file would become larger than object files may be.
    static void write(const SharedObj & root, File & file, bool omitsDefaults = true,
                      Form form = Form::Plain);

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
    /// Takes bytes behind those before.
    using Sink = std::function<void(const std::uint8_t * bytes, std::size_t size)>;

    /// Numbers that wait for more of their kind.
    struct Run {
        std::uint8_t type = 0;
        std::uint64_t name = 0, count = 0;
        std::vector<std::uint8_t> bytes;
    };

    ObjectStreamWriter(bool omitsDefaults, Form form, Sink sink);

    bool run(const char * name, int * values, std::uint64_t count) override;
    bool run(const char * name, unsigned * values, std::uint64_t count) override;
    bool run(const char * name, unsigned short * values, std::uint64_t count) override;
    bool run(const char * name, float * values, std::uint64_t count) override;
    bool run(const char * name, double * values, std::uint64_t count) override;

    /// Writes all, and returns where the tables begin.
    std::uint64_t writeAll(const SharedObj & root);
    template <class T>
    bool numbers(std::uint8_t type, const char * name, const T * values, std::uint64_t count);
    void endRun();
    void flush();
    void flushBodies(bool areAll);
    void deflateBodies(bool areAll);

    std::uint64_t reference(SharedObj * object);
    std::uint64_t nameNumber(const char * name);
    void beginRecord(std::uint8_t type, const char * name);
    void beginSection(std::uint8_t type, const char * name);
    void endSection();
    static std::size_t roomForSize(std::size_t around);
    void appendTables();

    struct ObjectEntry {
        SO<SharedObj> object;
        std::uint64_t className = 0;
        std::uint64_t bytes = 0;
    };

    bool omitsDefaults_;
    Form form_;
    Sink sink_;
    std::uint64_t flushed_ = 0;       ///< bytes that the sink has
    std::vector<std::uint8_t> body_;  ///< those behind them
    std::uint64_t inflatedBytes_ = 0; ///< of the bodies that were deflated
    Run run_;
    std::vector<std::size_t> openSections_; ///< where their sizes stand in `body_`
    std::deque<std::string> names_;
    std::unordered_map<std::string_view, std::uint64_t> nameNumbers_;
    std::deque<ObjectEntry> objects_;
    std::unordered_map<const SharedObj *, std::uint64_t> objectNumbers_; ///< from 1
    std::unordered_set<ID> refusedClasses_;
};

} // namespace NBX
