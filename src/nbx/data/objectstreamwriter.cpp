// Objects are written in the order in which they are met, and get their numbers then; the list grows while it
// is walked, so that cycles and depth need no care. The tables come in front, when all names and sizes are
// known. A section's size is written as 0 and set at its end.

#include <nbx/data/objectstreamwriter.h>

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include "deflatedblocks.h"
#include "objectstreamformat.h"

#include <nbx/data/file.h>
#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/classinfo.h>
#include <nbx/object/stringutils.h>

namespace NBX {

namespace {

using Bytes = std::vector<std::uint8_t>;

/// Bytes that are handed on at once.
constexpr std::size_t s_piece = 1 << 20;

void append(Bytes & out, const void * data, std::size_t size) {
    const auto * bytes = static_cast<const std::uint8_t *>(data);
    if (size > 0) out.insert(out.end(), bytes, bytes + size);
}

template <class T> void appendNumber(Bytes & out, T value) {
    append(out, &value, sizeof value);
}

/// Seven bits a byte, the low ones first; the top bit tells that more follow.
void appendVarint(Bytes & out, std::uint64_t value) {
    for (; value >= 0x80; value >>= 7)
        out.push_back(static_cast<std::uint8_t>(value | 0x80));
    out.push_back(static_cast<std::uint8_t>(value));
}

void appendText(Bytes & out, const std::string & text) {
    appendVarint(out, text.size());
    append(out, text.data(), text.size());
}

void appendVector(Bytes & out, const Vector3Base<double> & v) {
    for (unsigned axis = 0; axis < 3; ++axis)
        appendNumber(out, v[axis]);
}

} // namespace

std::vector<std::uint8_t> ObjectStreamWriter::write(const SharedObj & root, bool omitsDefaults, Form form) {
    Bytes stream;
    ObjectStreamWriter m(omitsDefaults, form, [&stream](const std::uint8_t * bytes, std::size_t size) {
        append(stream, bytes, size);
    });
    const std::uint64_t tables = m.writeAll(root);
    std::memcpy(stream.data() + s_tablesPlace, &tables, sizeof tables);
    return stream;
}

void ObjectStreamWriter::write(const SharedObj & root, File & file, bool omitsDefaults, Form form) {
    ObjectStreamWriter m(omitsDefaults, form, [&file](const std::uint8_t * bytes, std::size_t size) {
        if (file.position() + size > s_largestStream)
            throw IOException(L"the object is too large for an object file", file.fullName());
        file.write(bytes, size);
    });
    const std::uint64_t tables = m.writeAll(root);
    file.seek(s_tablesPlace);
    file.write(&tables, sizeof tables);
}

ObjectStreamWriter::ObjectStreamWriter(bool omitsDefaults, Form form, Sink sink)
    : omitsDefaults_(omitsDefaults), form_(form), sink_(std::move(sink)) {}

std::uint64_t ObjectStreamWriter::writeAll(const SharedObj & root) {
    // Writing changes no object, but one function serves both directions.
    if (reference(const_cast<SharedObj *>(&root)) == 0)
        throw IOException(L"objects of this class cannot be stored", root.classInfoNBX()->name().text());
    append(body_, s_streamMagic, sizeof s_streamMagic);
    appendNumber(body_, form_ == Form::Deflated ? s_deflatedStreamVersion : s_streamVersion);
    appendNumber(body_, std::uint64_t(0)); // known at the end
    flush();

    // Objects that are met enter the list at its end.
    for (std::size_t i = 0; i < objects_.size(); ++i) {
        const std::size_t start = body_.size();
        objects_[i].object->serialize(*this);
        endRun();
        objects_[i].bytes = body_.size() - start;
        if (body_.size() >= s_piece) flushBodies(false);
    }
    flushBodies(true);
    const std::uint64_t tables = flushed_;
    appendTables();
    flush();
    return tables;
}

void ObjectStreamWriter::flush() {
    sink_(body_.data(), body_.size());
    flushed_ += body_.size();
    body_.clear();
}

void ObjectStreamWriter::flushBodies(bool areAll) {
    if (form_ == Form::Deflated) return deflateBodies(areAll);
    flush();
}

/// What does not fill a block waits for more.
void ObjectStreamWriter::deflateBodies(bool areAll) {
    Bytes blocks;
    std::size_t at = 0;
    while (body_.size() - at >= DeflatedBlocks::s_blockBytes || (areAll && at < body_.size())) {
        const auto size = std::min<std::size_t>(body_.size() - at, DeflatedBlocks::s_blockBytes);
        DeflatedBlocks::append(blocks, body_.data() + at, size);
        at += size;
    }
    inflatedBytes_ += at;
    if (inflatedBytes_ > s_largestStream) throw IOException(L"the object is too large for an object file");
    const Bytes rest(body_.begin() + static_cast<std::ptrdiff_t>(at), body_.end());
    body_ = std::move(blocks);
    flush();
    body_ = rest;
}

void ObjectStreamWriter::appendTables() {
    appendVarint(body_, names_.size());
    for (const std::string & name : names_)
        appendText(body_, name);
    appendVarint(body_, objects_.size());
    for (const ObjectEntry & entry : objects_) {
        appendVarint(body_, entry.className);
        appendVarint(body_, entry.bytes);
    }
}

std::uint64_t ObjectStreamWriter::reference(SharedObj * object) {
    if (!object) return 0;
    if (const auto known = objectNumbers_.find(object); known != objectNumbers_.end()) return known->second;
    const ID & className = object->classInfoNBX()->name();
    if (!SerializationManager::isRegistered(className)) {
        if (refusedClasses_.insert(className).second)
            NBX_FAILURE(L"objects of class " << StringUtils::Utf8String2WString(className.text())
                                             << L" cannot be stored and are left out");
        return 0;
    }
    objects_.push_back({object, nameNumber(className.text()), 0});
    return objectNumbers_[object] = objects_.size();
}

std::uint64_t ObjectStreamWriter::nameNumber(const char * name) {
    const std::string_view text(name ? name : "");
    if (const auto known = nameNumbers_.find(text); known != nameNumbers_.end()) return known->second;
    names_.emplace_back(text);
    nameNumbers_.emplace(names_.back(), names_.size() - 1);
    return names_.size() - 1;
}

void ObjectStreamWriter::beginRecord(std::uint8_t type, const char * name) {
    endRun();
    body_.push_back(type);
    appendVarint(body_, nameNumber(name));
}

template <class T>
bool ObjectStreamWriter::numbers(std::uint8_t type, const char * name, const T * values,
                                 std::uint64_t count) {
    static_assert(std::is_arithmetic_v<T>);
    const std::uint64_t number = nameNumber(name);
    if (type != run_.type || number != run_.name) endRun();
    run_.type = type;
    run_.name = number;
    run_.count += count;
    append(run_.bytes, values, count * sizeof(T));
    return true;
}

/// One number is a record of its own.
void ObjectStreamWriter::endRun() {
    if (run_.count == 0) return;
    body_.push_back(run_.count == 1 ? run_.type : std::uint8_t(RT_Run));
    appendVarint(body_, run_.name);
    if (run_.count > 1) {
        body_.push_back(run_.type);
        appendVarint(body_, run_.count);
    }
    append(body_, run_.bytes.data(), run_.bytes.size());
    run_.count = 0;
    run_.bytes.clear();
}

/// Bytes that are left for the size of a section with `around` sections around it. Sections are mostly short,
/// and longer ones are shifted; deep inside, that would go on and on.
std::size_t ObjectStreamWriter::roomForSize(std::size_t around) {
    return around < 16 ? 1 : 5;
}

void ObjectStreamWriter::beginSection(std::uint8_t type, const char * name) {
    beginRecord(type, name);
    openSections_.push_back(body_.size());
    body_.resize(body_.size() + roomForSize(openSections_.size()));
}

void ObjectStreamWriter::endSection() {
    NBX_CHECK(!openSections_.empty(), L"a section ends that did not begin");
    if (openSections_.empty()) return;
    endRun();
    const std::size_t place = openSections_.back();
    openSections_.pop_back();
    const std::size_t room = roomForSize(openSections_.size() + 1);
    Bytes size;
    appendVarint(size, body_.size() - place - room);
    while (size.size() < room) {
        size.back() |= 0x80;
        size.push_back(0);
    }
    const auto target = body_.begin() + static_cast<std::ptrdiff_t>(place);
    std::copy_n(size.begin(), room, target);
    body_.insert(target + static_cast<std::ptrdiff_t>(room), size.begin() + static_cast<std::ptrdiff_t>(room),
                 size.end());
}

bool ObjectStreamWriter::beginContainer(const char *, const char * attributeName) {
    beginSection(RT_Container, attributeName);
    return true;
}

void ObjectStreamWriter::endContainer(const char *, const char *) {
    endSection();
}

void ObjectStreamWriter::beginSuperclass(const char * typeName) {
    beginSection(RT_Superclass, typeName);
}

void ObjectStreamWriter::endSuperclass(const char *) {
    endSection();
}

bool ObjectStreamWriter::rawAttribute(const char * name, void * pointer, std::uint64_t bytes) {
    beginRecord(RT_Raw, name);
    appendVarint(body_, bytes);
    append(body_, pointer, bytes);
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, bool & value) {
    beginRecord(RT_Bool, name);
    body_.push_back(value ? 1 : 0);
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, int & value) {
    return numbers(RT_Int, name, &value, 1);
}

bool ObjectStreamWriter::run(const char * name, int * values, std::uint64_t count) {
    return numbers(RT_Int, name, values, count);
}

bool ObjectStreamWriter::attribute(const char * name, unsigned & value) {
    return numbers(RT_Unsigned, name, &value, 1);
}

bool ObjectStreamWriter::run(const char * name, unsigned * values, std::uint64_t count) {
    return numbers(RT_Unsigned, name, values, count);
}

bool ObjectStreamWriter::attribute(const char * name, unsigned short & value) {
    return numbers(RT_UnsignedShort, name, &value, 1);
}

bool ObjectStreamWriter::run(const char * name, unsigned short * values, std::uint64_t count) {
    return numbers(RT_UnsignedShort, name, values, count);
}

bool ObjectStreamWriter::attribute(const char * name, std::uint64_t & value) {
    return numbers(RT_Unsigned64, name, &value, 1);
}

bool ObjectStreamWriter::attribute(const char * name, float & value) {
    return numbers(RT_Float, name, &value, 1);
}

bool ObjectStreamWriter::run(const char * name, float * values, std::uint64_t count) {
    return numbers(RT_Float, name, values, count);
}

bool ObjectStreamWriter::attribute(const char * name, double & value) {
    return numbers(RT_Double, name, &value, 1);
}

bool ObjectStreamWriter::run(const char * name, double * values, std::uint64_t count) {
    return numbers(RT_Double, name, values, count);
}

bool ObjectStreamWriter::attribute(const char * name, std::wstring & value) {
    beginRecord(RT_String, name);
    appendText(body_, StringUtils::WString2Utf8String(value));
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, Vector3Base<double> & value) {
    beginRecord(RT_Vector, name);
    appendVector(body_, value);
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, Bounds & value) {
    beginRecord(RT_Bounds, name);
    body_.push_back(value.isDefined() ? 1 : 0);
    appendVector(body_, value.getLLF());
    appendVector(body_, value.getURB());
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, Matrix4x4Base<double> & value) {
    beginRecord(RT_Matrix, name);
    append(body_, value.rows().data(), s_matrixBytes);
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, SO<SharedObj> & value) {
    const std::uint64_t number = reference(value.get());
    beginRecord(RT_Object, name);
    appendVarint(body_, number);
    return true;
}

} // namespace NBX
