// Objects are written in the order in which they are met, and get their numbers then; the list grows while it
// is walked, so that cycles and depth need no care. The tables come in front, when all names and sizes are
// known. A section's size is written as 0 and set at its end.

#include <nbx/data/objectstreamwriter.h>

#include <cstring>

#include "objectstreamformat.h"

#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/classinfo.h>
#include <nbx/object/stringutils.h>

namespace NBX {

namespace {

using Bytes = std::vector<std::uint8_t>;

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

std::vector<std::uint8_t> ObjectStreamWriter::write(const SharedObj & root, bool omitsDefaults) {
    ObjectStreamWriter m(omitsDefaults);
    // Writing changes no object, but one function serves both directions.
    if (m.reference(const_cast<SharedObj *>(&root)) == 0)
        throw IOException(L"objects of this class cannot be stored", root.classInfoNBX()->name().text());

    // Objects that are met enter the list at its end.
    for (std::size_t i = 0; i < m.objects_.size(); ++i) {
        const std::size_t start = m.body_.size();
        m.objects_[i].object->serialize(m);
        m.objects_[i].bytes = m.body_.size() - start;
    }
    return m.assembled();
}

std::vector<std::uint8_t> ObjectStreamWriter::assembled() const {
    Bytes stream;
    append(stream, s_streamMagic, sizeof s_streamMagic);
    appendNumber(stream, s_streamVersion);
    appendVarint(stream, names_.size());
    for (const std::string & name : names_)
        appendText(stream, name);
    appendVarint(stream, objects_.size());
    for (const ObjectEntry & entry : objects_) {
        appendVarint(stream, entry.className);
        appendVarint(stream, entry.bytes);
    }
    append(stream, body_.data(), body_.size());
    return stream;
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
    const auto [entry, isNew] = nameNumbers_.try_emplace(name ? name : "", names_.size());
    if (isNew) names_.push_back(entry->first);
    return entry->second;
}

void ObjectStreamWriter::beginRecord(std::uint8_t type, const char * name) {
    body_.push_back(type);
    appendVarint(body_, nameNumber(name));
}

void ObjectStreamWriter::beginSection(std::uint8_t type, const char * name) {
    beginRecord(type, name);
    openSections_.push_back(body_.size());
    appendNumber(body_, std::uint64_t(0));
}

void ObjectStreamWriter::endSection() {
    NBX_CHECK(!openSections_.empty(), L"a section ends that did not begin");
    if (openSections_.empty()) return;
    const std::size_t place = openSections_.back();
    openSections_.pop_back();
    const std::uint64_t bytes = body_.size() - place - s_sectionSizeBytes;
    std::memcpy(body_.data() + place, &bytes, sizeof bytes);
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
    beginRecord(RT_Int, name);
    appendNumber(body_, value);
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, unsigned & value) {
    beginRecord(RT_Unsigned, name);
    appendNumber(body_, value);
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, unsigned short & value) {
    beginRecord(RT_UnsignedShort, name);
    appendNumber(body_, value);
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, std::uint64_t & value) {
    beginRecord(RT_Unsigned64, name);
    appendNumber(body_, value);
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, float & value) {
    beginRecord(RT_Float, name);
    appendNumber(body_, value);
    return true;
}

bool ObjectStreamWriter::attribute(const char * name, double & value) {
    beginRecord(RT_Double, name);
    appendNumber(body_, value);
    return true;
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
