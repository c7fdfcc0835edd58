// The tables and every record are checked first, so that nothing after that looks beyond the end. Then
// objects are made and filled depth first, those that are referred to before those that refer to them, and
// the depth of the result is limited. All walks use lists in place of recursion, since a file decides how
// deep they go. Attributes are taken as they come while they are asked for in that order, else from an index
// of the section.

#include <nbx/data/objectstreamreader.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <unordered_set>

#include "deflatedblocks.h"
#include "objectstreamformat.h"

#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/stringutils.h>

namespace NBX {

namespace {

[[noreturn]] void throwUnsound(const wchar_t * detail) {
    throw IOError(L"the object file is damaged, get it anew", detail);
}

std::uint64_t left(const std::uint8_t * at, const std::uint8_t * end) {
    return static_cast<std::uint64_t>(end - at);
}

std::uint64_t takeLongVarint(const std::uint8_t *& at, const std::uint8_t * end) {
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
        if (at == end) throwUnsound(L"it ends within a number");
        const std::uint64_t bits = *at & 0x7F;
        if (shift == 63 && bits > 1) break;
        value |= bits << shift;
        if ((*at++ & 0x80) == 0) return value;
    }
    throwUnsound(L"a number is too long");
}

/// Nearly all have one byte.
inline std::uint64_t takeVarint(const std::uint8_t *& at, const std::uint8_t * end) {
    return at != end && *at < 0x80 ? *at++ : takeLongVarint(at, end);
}

/// A count of things that take at least one byte each.
std::uint64_t takeCount(const std::uint8_t *& at, const std::uint8_t * end) {
    const std::uint64_t count = takeVarint(at, end);
    if (count > left(at, end)) throwUnsound(L"a count exceeds the file");
    return count;
}

template <class T> T numberAt(const std::uint8_t * at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

Vector3Base<double> vectorAt(const std::uint8_t * at) {
    return {numberAt<double>(at), numberAt<double>(at + 8), numberAt<double>(at + 16)};
}

/// Bytes of the payload of a record whose type tells them; 0 for the others.
constexpr std::array<std::uint8_t, 256> s_fixedBytes = [] {
    std::array<std::uint8_t, 256> bytes{};
    for (const std::uint8_t type :
         {RT_Int, RT_Unsigned, RT_UnsignedShort, RT_Unsigned64, RT_Float, RT_Double})
        bytes[type] = static_cast<std::uint8_t>(runElementBytes(type));
    bytes[RT_Bool] = 1;
    bytes[RT_Vector] = s_vectorBytes;
    bytes[RT_Bounds] = s_boundsBytes;
    bytes[RT_Matrix] = s_matrixBytes;
    return bytes;
}();

/// Names of attributes are short: calls to count and to compare their letters take longer.
inline bool isName(const char * text, std::string_view name) {
    constexpr std::size_t longest = 16;
    if (name.size() > longest) return name == text;
    for (const char letter : name) {
        if (*text != letter || letter == '\0') return false;
        ++text;
    }
    return *text == '\0';
}

bool isSection(std::uint8_t type) {
    return type == RT_Container || type == RT_Superclass;
}

std::uint64_t keyOf(std::uint8_t type, std::uint64_t name) {
    return name << 8 | type;
}

/// How many objects a visitor may have to hold on its way down from `root`, whom it counts as well. Each
/// object is looked at once, those without children whenever they are met: most objects have none, and are
/// not noted. No recursion. Throws for one that hangs below itself.
unsigned depthBelow(const Visitable * root) {
    struct Open {
        const Visitable * object;
        std::size_t begin, next; ///< in `children`
        unsigned deepest;        ///< of the children that were looked at
    };
    constexpr unsigned isOpen = 0;
    std::unordered_map<const Visitable *, unsigned> depths;
    std::vector<Open> open;
    std::vector<Visitable *> children; ///< of all that are open, the innermost at the end
    const auto enter = [&](const Visitable * object) {
        const std::size_t begin = children.size();
        object->acceptChildren(children);
        if (children.size() == begin) return false;
        depths[object] = isOpen;
        open.push_back({object, begin, begin, 0});
        return true;
    };
    if (!enter(root)) return 1;
    for (;;) {
        Open & top = open.back();
        if (top.next == children.size()) {
            const unsigned depth = depths[top.object] = top.deepest + 1;
            children.resize(top.begin);
            open.pop_back();
            if (open.empty()) return depth;
            open.back().deepest = std::max(open.back().deepest, depth);
        } else if (const Visitable * child = children[top.next++]) {
            const auto known = depths.find(child);
            if (known != depths.end() && known->second == isOpen) throwUnsound(L"an object contains itself");
            if (known != depths.end())
                top.deepest = std::max(top.deepest, known->second);
            else if (!enter(child))
                top.deepest = std::max(top.deepest, 1U);
        }
    }
}

} // namespace

bool ObjectStreamReader::hasMagic(const void * data, std::uint64_t size) {
    return data && size >= sizeof s_streamMagic &&
           std::memcmp(data, s_streamMagic, sizeof s_streamMagic) == 0;
}

/// Names stand in front of the objects, and are few.
ID ObjectStreamReader::rootClass(const DataResource & resource) {
    constexpr unsigned mostBytes = 1U << 20U;
    std::array<std::uint8_t, sizeof s_streamMagic + sizeof(std::uint32_t) + sizeof(std::uint64_t)> head;
    if (resource.read(0, head.data(), head.size()) < head.size() || !hasMagic(head.data(), head.size()))
        return {};
    const auto version = numberAt<std::uint32_t>(head.data() + sizeof s_streamMagic);
    const std::uint64_t tables = version == s_firstStreamVersion
                                     ? sizeof s_streamMagic + sizeof version
                                     : numberAt<std::uint64_t>(head.data() + head.size() - sizeof tables);
    if (tables >= resource.size()) return {};
    std::vector<std::uint8_t> bytes(std::min<std::uint64_t>(resource.size() - tables, mostBytes));
    bytes.resize(resource.read(unsigned(tables), bytes.data(), unsigned(bytes.size())));
    const std::uint8_t * at = bytes.data();
    const std::uint8_t * const end = at + bytes.size();
    try {
        std::vector<std::string_view> names;
        for (std::uint64_t count = takeCount(at, end); count > 0; --count) {
            const std::uint64_t length = takeCount(at, end);
            names.emplace_back(reinterpret_cast<const char *>(at), length);
            at += length;
        }
        const bool hasObjects = takeVarint(at, end) > 0;
        const std::uint64_t name = hasObjects ? takeVarint(at, end) : names.size();
        return name < names.size() ? ID(std::string(names[name])) : ID();
    } catch (const IOError &) {
        return {};
    }
}

ObjectStreamReader::ObjectStreamReader(const void * data, std::uint64_t size)
    : data_(static_cast<const std::uint8_t *>(data)), size_(size) {}

SO<SharedObj> ObjectStreamReader::read() {
    readTables();
    readReferenced(0);
    const ObjectEntry & root = objects_.front();
    if (root.state == State::Failed) std::rethrow_exception(failures_.at(0));
    if (root.object && depthBelow(root.object.get()) > maxDepth)
        throw IOError(L"the objects are nested too deep",
                      L"more than " + std::to_wstring(maxDepth) + L" lie within each other");
    return root.object;
}

void ObjectStreamReader::readTables() {
    if (!hasMagic(data_, size_)) throw IOError(L"this is no object file");
    const std::uint8_t * at = data_ + sizeof s_streamMagic;
    const std::uint8_t * const end = data_ + size_;
    if (left(at, end) < sizeof version_) throwUnsound(L"it ends within its head");
    version_ = numberAt<std::uint32_t>(at);
    at += sizeof version_;
    if (version_ < s_firstStreamVersion || version_ > s_deflatedStreamVersion)
        throw IOError(L"the object file was written by another version of this program");

    const std::uint8_t * bodies = nullptr;
    const std::uint8_t * endOfBodies = end;
    if (version_ != s_firstStreamVersion) {
        if (left(at, end) < sizeof(std::uint64_t)) throwUnsound(L"it ends within its head");
        const auto tables = numberAt<std::uint64_t>(at);
        bodies = at + sizeof tables;
        if (tables > size_ || tables < left(data_, bodies)) throwUnsound(L"its tables are missing");
        at = endOfBodies = data_ + tables;
    }
    readNames(at, end);
    readObjects(at, end);
    if (bodies && at != end) throwUnsound(L"bytes follow behind the tables");
    if (version_ == s_deflatedStreamVersion)
        inflateBodies(bodies, endOfBodies);
    else
        placeBodies(bodies ? bodies : at, endOfBodies);
    references_.clear();
    objects_.front().uses = 1;
    for (ObjectEntry & entry : objects_)
        validate(entry);
}

void ObjectStreamReader::readNames(const std::uint8_t *& at, const std::uint8_t * end) {
    names_.clear();
    for (std::uint64_t count = takeCount(at, end); count > 0; --count) {
        const std::uint64_t length = takeCount(at, end);
        names_.emplace_back(reinterpret_cast<const char *>(at), length);
        nameNumbers_.try_emplace(names_.back(), names_.size() - 1);
        at += length;
    }
}

/// The places of the bodies are not known yet: of those only the sizes are noted, as ends.
void ObjectStreamReader::readObjects(const std::uint8_t *& at, const std::uint8_t * end) {
    objects_.clear();
    objects_.resize(takeCount(at, end));
    if (objects_.empty()) throwUnsound(L"it holds no object");
    for (ObjectEntry & entry : objects_) {
        entry.className = takeVarint(at, end);
        if (entry.className >= names_.size()) throwUnsound(L"a class has no name");
        entry.bytes = takeVarint(at, end);
    }
}

/// Their sizes, in the tables, say what is to come.
void ObjectStreamReader::inflateBodies(const std::uint8_t * at, const std::uint8_t * end) {
    std::uint64_t size = 0;
    for (const ObjectEntry & entry : objects_) {
        if (entry.bytes > s_largestStream - size) throwUnsound(L"its objects are too large");
        size += entry.bytes;
    }
    inflated_ = DeflatedBlocks::inflate(at, left(at, end), size);
    if (!inflated_) throwUnsound(L"its objects cannot be inflated");
    placeBodies(inflated_.get(), inflated_.get() + size);
}

void ObjectStreamReader::placeBodies(const std::uint8_t * at, const std::uint8_t * end) {
    for (ObjectEntry & entry : objects_) {
        if (entry.bytes > left(at, end)) throwUnsound(L"an object reaches beyond the end");
        entry.begin = at;
        at += entry.bytes;
    }
    if (at != end) throwUnsound(L"bytes follow behind the last object");
}

/// Also collects what the object refers to. Sections of sections are walked without recursion: what is open
/// is a list of ends.
void ObjectStreamReader::validate(ObjectEntry & entry) {
    entry.references = references_.size();
    std::vector<const std::uint8_t *> & ends = openEnds_;
    ends.assign(1, entry.begin + entry.bytes);
    for (const std::uint8_t * at = entry.begin; !ends.empty();) {
        if (at == ends.back()) {
            ends.pop_back();
            continue;
        }
        Record record;
        parse(at, ends.back(), record);
        if (record.name >= names_.size()) throwUnsound(L"an attribute has no name");
        if (record.type == RT_Object) {
            const std::uint8_t * value = record.payload;
            const std::uint64_t number = takeVarint(value, record.end);
            if (number > objects_.size()) throwUnsound(L"an object is missing");
            if (number > 0) references_.push_back(number - 1);
            if (number > 0) ++objects_[number - 1].uses;
        }
        if (isSection(record.type)) ends.push_back(record.end);
        at = isSection(record.type) ? record.payload : record.end;
    }
}

/// Fills `record` in place, since copies of it take as long as the rest.
inline void ObjectStreamReader::parse(const std::uint8_t * at, const std::uint8_t * end,
                                      Record & record) const {
    record.type = *at++;
    record.name = takeVarint(at, end);
    record.count = 1;
    record.bytes = s_fixedBytes[record.type];
    if (record.bytes == 0)
        at = parseSized(at, end, record);
    else if (record.bytes > left(at, end))
        throwUnsound(L"an attribute reaches beyond the end");
    record.payload = at;
    record.end = at + record.bytes;
}

/// The rest of a record that tells its own size; returns where its payload begins.
const std::uint8_t * ObjectStreamReader::parseSized(const std::uint8_t * at, const std::uint8_t * end,
                                                    Record & record) const {
    if (record.type == RT_Run && version_ != s_firstStreamVersion) {
        if (at == end) throwUnsound(L"it ends within a run");
        record.type = *at++;
        record.count = takeVarint(at, end);
        const std::uint64_t bytes = runElementBytes(record.type);
        if (bytes == 0 || record.count == 0) throwUnsound(L"a run is of an unknown type");
        if (record.count > left(at, end) / bytes) throwUnsound(L"a run reaches beyond the end");
        record.bytes = record.count * bytes;
    } else {
        record.bytes = takePayloadSize(record.type, at, end);
        if (record.bytes > left(at, end)) throwUnsound(L"an attribute reaches beyond the end");
    }
    return at;
}

/// Bytes of the payload of a record whose type does not tell them. Its own size field, where it has one, is
/// taken off the front.
std::uint64_t ObjectStreamReader::takePayloadSize(std::uint8_t type, const std::uint8_t *& at,
                                                  const std::uint8_t * end) const {
    switch (type) {
    case RT_String:
    case RT_Raw:
        return takeVarint(at, end);
    case RT_Object: {
        const std::uint8_t * behind = at;
        takeVarint(behind, end);
        return left(at, behind);
    }
    case RT_Container:
    case RT_Superclass: {
        if (version_ != s_firstStreamVersion) return takeVarint(at, end);
        if (left(at, end) < s_sectionSizeBytes) throwUnsound(L"it ends within a section's head");
        const auto size = numberAt<std::uint64_t>(at);
        at += s_sectionSizeBytes;
        return size;
    }
    default:
        throwUnsound(L"a record is of an unknown type");
    }
}

/// Depth first with a list of its own in place of recursion: an object is filled when all that it refers
/// to are, save those that wait for it in turn.
void ObjectStreamReader::readReferenced(std::uint64_t first) {
    struct Waiting {
        std::uint64_t object;
        std::size_t next, end; ///< of its references
    };
    std::vector<Waiting> waiting;
    const auto begin = [&](std::uint64_t object) {
        ObjectEntry & entry = objects_[object];
        make(entry);
        const std::size_t end =
            object + 1 < objects_.size() ? objects_[object + 1].references : references_.size();
        if (!entry.object) return;
        prefetch(objects_[entry.references < end ? references_[entry.references] : object]);
        waiting.push_back({object, entry.references, end});
        unfinished_.insert(entry.object.get());
    };

    begin(first);
    while (!waiting.empty()) {
        Waiting & top = waiting.back();
        if (top.next == top.end) {
            const SO<SharedObj> object = objects_[top.object].object;
            fill(top.object);
            unfinished_.erase(object.get());
            waiting.pop_back();
        } else {
            const std::uint64_t object = references_[top.next++];
            prefetch(objects_[top.next < top.end ? references_[top.next] : top.object]);
            if (objects_[object].state == State::Untouched) begin(object);
        }
    }
}

/// Neighbours in the order of reading lie far apart.
void ObjectStreamReader::prefetch(const ObjectEntry & entry) {
    constexpr std::uint64_t line = 64, most = 8 * line;
    for (std::uint64_t at = 0; at < std::min(entry.bytes, most); at += line)
        __builtin_prefetch(entry.begin + at);
}

/// An object of an unknown class stays null and counts as complete.
void ObjectStreamReader::make(ObjectEntry & entry) {
    auto known = classes_.find(entry.className);
    if (known == classes_.end())
        known = classes_.emplace(entry.className, ID(std::string(names_[entry.className]))).first;
    entry.object = SerializationManager::newInstance(known->second);
    entry.state = entry.object ? State::Made : State::Complete;
    if (!entry.object && unknownClassNames_.insert(entry.className).second)
        unknownClasses_.emplace_back(names_[entry.className]);
}

void ObjectStreamReader::fill(std::uint64_t number) {
    ObjectEntry & entry = objects_[number];
    sections_.clear();
    sections_.push_back({{entry.begin}, entry.begin + entry.bytes, entry.bytes, nullptr});
    try {
        entry.object->serialize(*this);
        entry.state = State::Complete;
    } catch (...) {
        failures_[number] = std::current_exception();
        entry.object = nullptr;
        entry.state = State::Failed;
    }
    sections_.clear();
}

/// The next record of a type and name, or at most `most` values of a run.
bool ObjectStreamReader::find(std::uint8_t type, const char * name, Record & record, std::uint64_t most) {
    if (sections_.empty()) return false;
    if (!name) name = "";
    Section & section = sections_.back();
    if (!section.index) {
        if (section.next.record == section.end) return false;
        parse(section.next.record, section.end, record);
        if (record.type == type && isName(name, names_[record.name]))
            return take(section, section.next, record, most);
    }
    const auto number = nameNumbers_.find(name);
    if (number == nameNumbers_.end()) return false;
    if (!section.index) index(section);
    return findIndexed(section, keyOf(type, number->second), record, most);
}

void ObjectStreamReader::index(Section & section) const {
    section.index = std::make_unique<Index>();
    for (Place place = section.next; place.record != section.end;) {
        Record record;
        parse(place.record, section.end, record);
        (*section.index)[keyOf(record.type, record.name)].records.push_back(place);
        place = {record.end};
    }
}

bool ObjectStreamReader::findIndexed(Section & section, std::uint64_t key, Record & record,
                                     std::uint64_t most) const {
    const auto found = section.index->find(key);
    if (found == section.index->end()) return false;
    Queue & queue = found->second;
    if (queue.next == queue.records.size()) return false;
    Place & place = queue.records[queue.next];
    const std::uint8_t * const start = place.record;
    parse(start, section.end, record);
    take(section, place, record, most);
    if (place.record != start) ++queue.next;
    return true;
}

/// Narrows `record`, which lies at `place`, to the next values of it, and goes on behind them.
inline bool ObjectStreamReader::take(Section & section, Place & place, Record & record, std::uint64_t most) {
    if (place.taken == 0) section.bytesLeft -= left(place.record, record.payload);
    if (record.count <= most && place.taken == 0) {
        section.bytesLeft -= record.bytes;
        place = {record.end};
        return true;
    }
    const std::uint64_t bytes = record.bytes / record.count;
    const std::uint64_t taken = place.taken;
    const std::uint64_t count = std::min(most, record.count - taken);
    if (taken + count == record.count)
        place = {record.end};
    else
        place.taken += count;
    record.count = count;
    record.payload += taken * bytes;
    record.bytes = count * bytes;
    record.end = record.payload + record.bytes;
    section.bytesLeft -= record.bytes;
    return true;
}

bool ObjectStreamReader::enter(std::uint8_t type, const char * name) {
    Record record;
    if (!find(type, name, record)) return false;
    sections_.push_back({{record.payload}, record.end, record.bytes, nullptr});
    return true;
}

void ObjectStreamReader::leave() {
    NBX_CHECK(sections_.size() > 1, L"a section ends that did not begin");
    if (sections_.size() > 1) sections_.pop_back();
}

bool ObjectStreamReader::beginContainer(const char *, const char * attributeName) {
    return enter(RT_Container, attributeName);
}

void ObjectStreamReader::endContainer(const char *, const char *) {
    leave();
}

/// A parent that the stream does not know reads an empty section: its attributes get their defaults.
void ObjectStreamReader::beginSuperclass(const char * typeName) {
    if (!enter(RT_Superclass, typeName)) sections_.push_back({{data_}, data_, 0, nullptr});
}

void ObjectStreamReader::endSuperclass(const char *) {
    leave();
}

std::uint64_t ObjectStreamReader::bytesLeft() const {
    return sections_.empty() ? 0 : sections_.back().bytesLeft;
}

bool ObjectStreamReader::rawAttribute(const char * name, void * pointer, std::uint64_t bytes) {
    Record record;
    if (!find(RT_Raw, name, record) || record.bytes != bytes) return false;
    if (bytes > 0) std::memcpy(pointer, record.payload, bytes);
    return true;
}

template <class T>
bool ObjectStreamReader::numbers(std::uint8_t type, const char * name, T * values, std::uint64_t count) {
    while (count > 0) {
        Record record;
        if (!find(type, name, record, count)) return false;
        if (record.count == 1)
            *values = numberAt<T>(record.payload);
        else
            std::memcpy(values, record.payload, record.bytes);
        values += record.count;
        count -= record.count;
    }
    return true;
}

bool ObjectStreamReader::attribute(const char * name, bool & value) {
    std::uint8_t byte = 0;
    if (!numbers(RT_Bool, name, &byte, 1)) return false;
    value = byte != 0;
    return true;
}

bool ObjectStreamReader::attribute(const char * name, int & value) {
    return numbers(RT_Int, name, &value, 1);
}

bool ObjectStreamReader::run(const char * name, int * values, std::uint64_t count) {
    return numbers(RT_Int, name, values, count);
}

bool ObjectStreamReader::attribute(const char * name, unsigned & value) {
    return numbers(RT_Unsigned, name, &value, 1);
}

bool ObjectStreamReader::run(const char * name, unsigned * values, std::uint64_t count) {
    return numbers(RT_Unsigned, name, values, count);
}

bool ObjectStreamReader::attribute(const char * name, unsigned short & value) {
    return numbers(RT_UnsignedShort, name, &value, 1);
}

bool ObjectStreamReader::run(const char * name, unsigned short * values, std::uint64_t count) {
    return numbers(RT_UnsignedShort, name, values, count);
}

bool ObjectStreamReader::attribute(const char * name, std::uint64_t & value) {
    return numbers(RT_Unsigned64, name, &value, 1);
}

bool ObjectStreamReader::attribute(const char * name, float & value) {
    return numbers(RT_Float, name, &value, 1);
}

bool ObjectStreamReader::run(const char * name, float * values, std::uint64_t count) {
    return numbers(RT_Float, name, values, count);
}

bool ObjectStreamReader::attribute(const char * name, double & value) {
    return numbers(RT_Double, name, &value, 1);
}

bool ObjectStreamReader::run(const char * name, double * values, std::uint64_t count) {
    return numbers(RT_Double, name, values, count);
}

bool ObjectStreamReader::attribute(const char * name, std::wstring & value) {
    Record record;
    if (!find(RT_String, name, record)) return false;
    value = StringUtils::Utf8String2WString({reinterpret_cast<const char *>(record.payload), record.bytes});
    return true;
}

bool ObjectStreamReader::attribute(const char * name, Vector3Base<double> & value) {
    Record record;
    if (!find(RT_Vector, name, record)) return false;
    value = vectorAt(record.payload);
    return true;
}

bool ObjectStreamReader::attribute(const char * name, Bounds & value) {
    Record record;
    if (!find(RT_Bounds, name, record)) return false;
    const bool isDefined = record.payload[0] != 0;
    value = isDefined ? Bounds(vectorAt(record.payload + 1), vectorAt(record.payload + 1 + s_vectorBytes))
                      : Bounds();
    return true;
}

bool ObjectStreamReader::attribute(const char * name, Matrix4x4Base<double> & value) {
    Record record;
    if (!find(RT_Matrix, name, record)) return false;
    value = Matrix4x4Base<double>(numberAt<std::array<double, 16>>(record.payload));
    return true;
}

bool ObjectStreamReader::attribute(const char * name, SO<SharedObj> & value) {
    Record record;
    if (!find(RT_Object, name, record)) return false;
    const std::uint8_t * at = record.payload;
    const std::uint64_t number = takeVarint(at, record.end);
    if (number == 0) {
        value = nullptr;
        return true;
    }
    ObjectEntry & entry = objects_[number - 1];
    if (entry.state == State::Failed) std::rethrow_exception(failures_.at(number - 1));
    // What nobody asks for again is let go while it is at hand. It was filled: one that waits to be filled
    // has the use of the object that waits for it.
    if (--entry.uses == 0)
        value = std::move(entry.object);
    else
        value = entry.object;
    return true;
}

} // namespace NBX
