#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <nbx/data/dataresource.h>
#include <nbx/object/attributeruns.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

/// Reads what `ObjectStreamWriter` wrote, in any form and also in its first version. The bytes are not
/// trusted: the whole structure is checked before the first object is made, and memory is taken in proportion
/// to the bytes only.
///
/// Within a section, attributes are found by name and type, whatever stands between them; several of one
/// name come in the order of the stream, each of them once. An object that another one refers to is read
/// in full before, unless the two refer to each other in a circle. References to objects of unknown classes
/// are null. An exception thrown by an object's `serialize` is thrown again for those that ask for the
/// object.
class ObjectStreamReader : public SerializationManager, public AttributeRuns {
public:
    /// True when the bytes begin like a stream of ours.
    static bool hasMagic(const void * data, std::uint64_t size);
    /// The class of the root object, by a part of the tables alone; empty for bytes that are no stream of
    /// ours, or damaged there. Throws what `resource` throws.
    static ID rootClass(const DataResource & resource);

    /// `data` stays the caller's, and must live as long as the reader.
    ObjectStreamReader(const void * data, std::uint64_t size);

    /// Visitors, painters and ray tests go down a scene by recursion. At this depth they stay within a stack
    /// of 512 KiB, and with the address sanitizer within 2 MiB; see docs/object-stream.md.
    static constexpr unsigned maxDepth = 500;

    /// The root object; null when its class is unknown. Throws `IOError` for bytes that are no sound stream,
    /// for objects that a visitor would meet deeper than `maxDepth` or below themselves, and what the root
    /// object's `serialize` throws.
    SO<SharedObj> read();

    /// The classes that were met and are not registered, in order of their first object.
    const std::vector<std::string> & unknownClasses() const { return unknownClasses_; }

    bool isReading() const override { return true; }
    bool isWriting() const override { return false; }
    bool omitsDefaults() const override { return false; }
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

    /// Bytes of the current section that were not read yet.
    std::uint64_t bytesLeft() const override;
    bool isBeingRead(const SharedObj * object) const override { return unfinished_.contains(object); }

private:
    /// A record, or some values of a run, which counts as as many records of its numbers' type.
    struct Record {
        std::uint8_t type;
        std::uint64_t name;
        std::uint64_t count; ///< of the values; 1 but in runs
        const std::uint8_t * payload;
        std::uint64_t bytes; ///< of the payload
        const std::uint8_t * end;
    };
    /// Where reading goes on: a record, and how many of its values were read.
    struct Place {
        const std::uint8_t * record;
        std::uint64_t taken = 0;
    };
    /// The records of one name and type of a section that were not read yet.
    struct Queue {
        std::vector<Place> records;
        std::size_t next = 0;
    };
    using Index = std::unordered_map<std::uint64_t, Queue>;
    struct Section {
        Place next; ///< up to here the records have been read in their order
        const std::uint8_t * end;
        std::uint64_t bytesLeft;
        std::unique_ptr<Index> index; ///< of the records from `next` on, once one was not the next
    };
    enum class State { Untouched, Made, Complete, Failed };
    struct ObjectEntry {
        std::uint64_t className = 0;
        const std::uint8_t * begin = nullptr;
        std::uint64_t bytes = 0;
        std::size_t references = 0; ///< where those of the object begin
        std::uint64_t uses = 0;     ///< references to it that were not read yet
        State state = State::Untouched;
        SO<SharedObj> object;
    };

    void readTables();
    void readNames(const std::uint8_t *& at, const std::uint8_t * end);
    void readObjects(const std::uint8_t *& at, const std::uint8_t * end);
    void inflateBodies(const std::uint8_t * at, const std::uint8_t * end);
    void placeBodies(const std::uint8_t * at, const std::uint8_t * end);
    void validate(ObjectEntry & entry);
    void parse(const std::uint8_t * at, const std::uint8_t * end, Record & record) const;
    const std::uint8_t * parseSized(const std::uint8_t * at, const std::uint8_t * end, Record & record) const;
    std::uint64_t takePayloadSize(std::uint8_t type, const std::uint8_t *& at,
                                  const std::uint8_t * end) const;

    bool run(const char * name, int * values, std::uint64_t count) override;
    bool run(const char * name, unsigned * values, std::uint64_t count) override;
    bool run(const char * name, unsigned short * values, std::uint64_t count) override;
    bool run(const char * name, float * values, std::uint64_t count) override;
    bool run(const char * name, double * values, std::uint64_t count) override;

    void readReferenced(std::uint64_t first);
    static void prefetch(const ObjectEntry & entry);
    void make(ObjectEntry & entry);
    void fill(std::uint64_t number);

    bool find(std::uint8_t type, const char * name, Record & record, std::uint64_t most = 1);
    void index(Section & section) const;
    bool findIndexed(Section & section, std::uint64_t key, Record & record, std::uint64_t most) const;
    static bool take(Section & section, Place & place, Record & record, std::uint64_t most);
    bool enter(std::uint8_t type, const char * name);
    void leave();
    template <class T> bool numbers(std::uint8_t type, const char * name, T * values, std::uint64_t count);

    const std::uint8_t * data_;
    std::uint64_t size_;
    std::uint32_t version_ = 0;
    std::unique_ptr<std::uint8_t[]> inflated_; ///< the bodies, where they were deflated
    std::vector<std::string_view> names_;
    std::unordered_map<std::string_view, std::uint64_t> nameNumbers_;
    std::vector<ObjectEntry> objects_;
    std::unordered_map<std::uint64_t, std::exception_ptr> failures_; ///< of objects, by their places
    std::vector<std::uint64_t> references_;            ///< of all objects to others, counted from 0
    std::unordered_set<const SharedObj *> unfinished_; ///< those on the way from the root to the current one
    std::vector<const std::uint8_t *> openEnds_;       ///< of sections that are checked
    std::vector<Section> sections_;                    ///< the open ones, the innermost at the end
    std::vector<std::string> unknownClasses_;
    std::unordered_set<std::uint64_t> unknownClassNames_;
    std::unordered_map<std::uint64_t, ID> classes_; ///< by the number of the name
};

} // namespace NBX
