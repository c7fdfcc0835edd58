// Buffers keep what they hold in main memory, since rays, storage and the merging of meshes need it there,
// and no context is at hand then. A buffer on the card follows by its transaction number. Whatever was read
// is judged before OpenGL sees it: types and numbers of components by attribute, and no attribute shorter
// than the positions.

#include <nbx/gl/mesh/mappedvertexattributedatagl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(MappedVertexAttributeDataGL, SharedObj)
NBX_CLASS_IMPL(MappedVertexAttributeDataGL::Buffer, SharedObj)

const ID MappedVertexAttributeDataGL::VERTEX_ID("vertex");
const ID MappedVertexAttributeDataGL::NORMAL_ID("normal");
const ID MappedVertexAttributeDataGL::COLOR_ID("color");

namespace {

using Data = MappedVertexAttributeDataGL;
using Buffer = MappedVertexAttributeDataGL::Buffer;

constexpr unsigned s_maxComponents = 4;

bool canBe(unsigned componentType, unsigned components) {
    return BaseVertexAttributeBufferObjectGL::componentBytes(componentType) > 0 && components >= 1 &&
           components <= s_maxComponents;
}

template <class T> double numberAt(const std::uint8_t * at) {
    T number;
    std::memcpy(&number, at, sizeof number);
    return double(number);
}

bool isFloating(unsigned componentType) {
    return componentType == GL_FLOAT || componentType == GL_DOUBLE;
}

/// Whether the entry points for the attribute take such numbers.
bool isTaken(const ID & name, const Buffer & buffer) {
    if (name == Data::VERTEX_ID) return isFloating(buffer.componentType()) && buffer.components() >= 2;
    if (name == Data::NORMAL_ID) return isFloating(buffer.componentType()) && buffer.components() == 3;
    if (name == Data::COLOR_ID) return buffer.components() >= 3;
    return isFloating(buffer.componentType());
}

bool isDrawn(const ID & name) {
    if (name == Data::VERTEX_ID || name == Data::NORMAL_ID || name == Data::COLOR_ID) return true;
    for (unsigned unit = 0; unit < Data::maxTextureUnits; ++unit)
        if (name == Data::TEXCOORD_ID(unit)) return true;
    return false;
}

[[noreturn]] void throwDamaged(const wchar_t * detail) {
    throw IOError(L"stored mesh is damaged", detail);
}

} // namespace

const ID & MappedVertexAttributeDataGL::TEXCOORD_ID(unsigned unit) {
    static const std::array<ID, maxTextureUnits> ids = [] {
        std::array<ID, maxTextureUnits> names;
        for (unsigned i = 0; i < maxTextureUnits; ++i)
            names[i] = ID("texCoord" + std::to_string(i));
        return names;
    }();
    NBX_CHECK(unit < maxTextureUnits, L"unit out of range");
    return ids[unit < maxTextureUnits ? unit : 0];
}

MappedVertexAttributeDataGL::Buffer::Buffer(unsigned componentType, unsigned components, unsigned count)
    : componentType_(componentType), components_(components), count_(count) {
    NBX_CHECK(canBe(componentType, components),
              L"no vertex attribute has " << components << L" components of type " << componentType);
    if (!canBe(componentType, components)) count_ = 0;
    bytes_.resize(std::size_t(count_) * elementBytes());
}

MappedVertexAttributeDataGL::Buffer::Buffer(unsigned componentType, unsigned components, unsigned count,
                                            const void * data)
    : Buffer(componentType, components, count) {
    if (!bytes_.empty()) std::memcpy(bytes_.data(), data, bytes_.size());
}

MappedVertexAttributeDataGL::Buffer::~Buffer() = default;

unsigned MappedVertexAttributeDataGL::Buffer::elementBytes() const {
    return components_ * BaseVertexAttributeBufferObjectGL::componentBytes(componentType_);
}

double MappedVertexAttributeDataGL::Buffer::value(unsigned i, unsigned component) const {
    const std::uint8_t * at = bytes_.data() + std::size_t(i) * elementBytes() +
                              std::size_t(component) * (elementBytes() / components_);
    switch (componentType_) {
    case GL_UNSIGNED_BYTE:
        return *at;
    case GL_UNSIGNED_SHORT:
        return numberAt<std::uint16_t>(at);
    case GL_UNSIGNED_INT:
        return numberAt<std::uint32_t>(at);
    case GL_DOUBLE:
        return numberAt<double>(at);
    default:
        return numberAt<float>(at);
    }
}

SO<BaseVertexAttributeBufferObjectGL>
MappedVertexAttributeDataGL::Buffer::bufferObject(EngineGL * engine,
                                                  BufferObjectGL::UsagePattern usage) const {
    NBX_CHECK(engine, L"no engine");
    if (!engine || bytes_.empty()) return nullptr;
    if (!object_) {
        const SO<BaseVertexAttributeBufferObjectGL> made(new BaseVertexAttributeBufferObjectGL(
            engine, count_, bytes_.data(), componentType_, components_, usage));
        if (made->bytes() != bytes_.size()) return nullptr;
        object_ = made;
    } else if (uploadedTransactionNo_ != lastTransactionNo()) {
        object_->update(0, bytes_.data(), bytes_.size());
    }
    uploadedTransactionNo_ = lastTransactionNo();
    return object_;
}

MappedVertexAttributeDataGL::MappedVertexAttributeDataGL(BufferObjectGL::UsagePattern usage)
    : usage_(usage) {}

MappedVertexAttributeDataGL::~MappedVertexAttributeDataGL() = default;

std::vector<ID> MappedVertexAttributeDataGL::names() const {
    std::vector<ID> names;
    for (const Entry & entry : entries_)
        names.push_back(entry.name);
    return names;
}

const MappedVertexAttributeDataGL::Buffer * MappedVertexAttributeDataGL::find(const ID & name) const {
    for (const Entry & entry : entries_)
        if (entry.name == name) return entry.buffer.get();
    return nullptr;
}

SO<MappedVertexAttributeDataGL::Buffer> MappedVertexAttributeDataGL::buffer(const ID & name) const {
    return const_cast<Buffer *>(find(name));
}

void MappedVertexAttributeDataGL::setBuffer(const ID & name, SO<Buffer> buffer) {
    const auto found =
        std::find_if(entries_.begin(), entries_.end(), [&](const Entry & e) { return e.name == name; });
    if (found == entries_.end()) {
        if (buffer) entries_.push_back({name, buffer});
    } else if (buffer) {
        found->buffer.swap(buffer);
    } else {
        entries_.erase(found);
    }
    modified();
}

unsigned MappedVertexAttributeDataGL::vertices() const {
    const Buffer * positions = find(VERTEX_ID);
    return positions ? positions->count() : 0;
}

std::size_t MappedVertexAttributeDataGL::bytes() const {
    std::size_t sum = 0;
    for (const Entry & entry : entries_)
        sum += entry.buffer->bytes();
    return sum;
}

bool MappedVertexAttributeDataGL::isDrawable() const {
    if (!buffer(VERTEX_ID)) return false;
    const unsigned count = vertices();
    return std::all_of(entries_.begin(), entries_.end(), [&](const Entry & entry) {
        return !isDrawn(entry.name) || (isTaken(entry.name, *entry.buffer) && entry.buffer->count() >= count);
    });
}

void MappedVertexAttributeDataGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<SharedObj>(m, static_cast<SharedObj *>(this));
    int usage = usage_;
    attributeWithDefault(m, "usagePattern", usage, int(BufferObjectGL::UP_Static));
    if (m.isReading()) {
        if (usage < BufferObjectGL::UP_Stream || usage > BufferObjectGL::UP_Dynamic)
            throwDamaged(L"its buffers are used in no way that is known");
        usage_ = BufferObjectGL::UsagePattern(usage);
        entries_.clear();
    }
    if (!m.beginContainer(typeid(Buffer).name(), "buffers")) return;
    if (m.isReading())
        readBuffers(m);
    else
        writeBuffers(m);
    m.endContainer(typeid(Buffer).name(), "buffers");
    if (m.isReading()) modified();
}

void MappedVertexAttributeDataGL::readBuffers(SerializationManager & m) {
    unsigned size = 0;
    m.attribute("Size", size);
    m.separateValues();
    for (unsigned i = 0; i < size; ++i) {
        std::wstring name;
        unsigned type = 0, components = 0, count = 0;
        if (!m.attribute("name", name) || !m.attribute("componentType", type) ||
            !m.attribute("components", components) || !m.attribute("count", count))
            throwDamaged(L"it is cut short");
        if (!canBe(type, components)) throwDamaged(L"no vertex attribute has such components");
        const std::uint64_t bytes =
            std::uint64_t(count) * components * BaseVertexAttributeBufferObjectGL::componentBytes(type);
        if (bytes > m.bytesLeft()) throwDamaged(L"it is cut short");
        const SO<Buffer> buffer(new Buffer(type, components, count));
        if (!m.rawAttribute("data", buffer->mapPointer(), bytes)) throwDamaged(L"it is cut short");
        setBuffer(ID(StringUtils::WString2Utf8String(name)), buffer);
    }
}

void MappedVertexAttributeDataGL::writeBuffers(SerializationManager & m) const {
    auto size = unsigned(entries_.size());
    m.attribute("Size", size);
    m.separateValues();
    for (const Entry & entry : entries_) {
        std::wstring name = StringUtils::Utf8String2WString(entry.name.text());
        unsigned type = entry.buffer->componentType(), components = entry.buffer->components(),
                 count = entry.buffer->count();
        m.attribute("name", name);
        m.attribute("componentType", type);
        m.attribute("components", components);
        m.attribute("count", count);
        m.rawAttribute("data", entry.buffer->mapPointer(), entry.buffer->bytes());
    }
}

namespace {

/// The attribute bound as the current array buffer; null without one.
SO<BaseVertexAttributeBufferObjectGL> bound(EngineGL * engine, const Data & data, const ID & name) {
    const SO<Buffer> buffer = data.buffer(name);
    SO<BaseVertexAttributeBufferObjectGL> object;
    if (buffer) object = buffer->bufferObject(engine, data.usagePattern());
    if (object) object->bind(engine);
    return object;
}

/// No array that somebody else enabled is read with the ranges of these buffers.
void disableArrays(unsigned units) {
    for (const GLenum array : {GL_VERTEX_ARRAY, GL_NORMAL_ARRAY, GL_COLOR_ARRAY})
        glDisableClientState(array);
    for (unsigned unit = 0; unit < units; ++unit) {
        glClientActiveTexture(GL_TEXTURE0 + unit);
        glDisableClientState(GL_TEXTURE_COORD_ARRAY);
    }
}

void bindTexCoords(EngineGL * engine, const Data & data, const std::vector<unsigned> & sets, unsigned units) {
    for (unsigned unit = 0; unit < units; ++unit) {
        const unsigned set = unit < sets.size() ? sets[unit] : unit;
        auto coordinates = bound(engine, data, Data::TEXCOORD_ID(set));
        if (!coordinates) coordinates = bound(engine, data, Data::TEXCOORD_ID(0));
        if (!coordinates) continue;
        glClientActiveTexture(GL_TEXTURE0 + unit);
        glTexCoordPointer(GLint(coordinates->components()), coordinates->componentType(), 0,
                          coordinates->boundAddress(0));
        glEnableClientState(GL_TEXTURE_COORD_ARRAY);
    }
}

/// False when the card has no room for the positions.
bool bindAll(EngineGL * engine, const Data & data, const std::vector<unsigned> & sets) {
    const unsigned units = std::min(Data::maxTextureUnits, engine->textureCoordinateSets());
    disableArrays(units);
    if (const auto normals = bound(engine, data, Data::NORMAL_ID)) {
        glNormalPointer(normals->componentType(), 0, normals->boundAddress(0));
        glEnableClientState(GL_NORMAL_ARRAY);
    }
    if (const auto colors = bound(engine, data, Data::COLOR_ID)) {
        glColorPointer(GLint(colors->components()), colors->componentType(), 0, colors->boundAddress(0));
        glEnableClientState(GL_COLOR_ARRAY);
    }
    bindTexCoords(engine, data, sets, units);
    const auto positions = bound(engine, data, Data::VERTEX_ID);
    if (!positions) return false;
    glVertexPointer(GLint(positions->components()), positions->componentType(), 0,
                    positions->boundAddress(0));
    glEnableClientState(GL_VERTEX_ARRAY);
    return true;
}

} // namespace

MappedVertexAttributeBindingGL::MappedVertexAttributeBindingGL(EngineGL * engine,
                                                               const MappedVertexAttributeDataGL & data,
                                                               const std::vector<unsigned> & sets)
    : engine_(engine), usage_(data.usagePattern()), vertices_(data.vertices()), isBound_(false) {
    glPushClientAttrib(GL_CLIENT_VERTEX_ARRAY_BIT);
    glPushAttrib(GL_CURRENT_BIT);
    const bool isDrawable = data.isDrawable();
    NBX_CHECK(isDrawable, L"the vertex attributes cannot be drawn");
    if (isDrawable && vertices_ > 0) isBound_ = bindAll(engine, data, sets);
}

MappedVertexAttributeBindingGL::~MappedVertexAttributeBindingGL() {
    glPopAttrib();
    glPopClientAttrib();
}

void MappedVertexAttributeBindingGL::draw(unsigned primitiveType, int first, int count) const {
    if (!isBound_ || count == 0) return;
    const bool inside = first >= 0 && count >= 0 && unsigned(first) <= vertices_ &&
                        unsigned(count) <= vertices_ - unsigned(first);
    NBX_CHECK(inside, L"range error: [0, " << vertices_ << L"), " << first << L" + " << count);
    if (inside) glDrawArrays(primitiveType, first, count);
}

void MappedVertexAttributeBindingGL::drawIndexed(unsigned primitiveType,
                                                 const MappedVertexAttributeDataGL::Buffer & indices) const {
    if (!isBound_ || indices.count() == 0) return;
    const auto object = indices.bufferObject(engine_, usage_);
    if (!object) return;
    object->changeType(BufferObjectGL::DT_VertexIndices);
    object->bind(engine_);
    glDrawElements(primitiveType, GLsizei(indices.count()), indices.componentType(), object->boundAddress(0));
    object->unbind(engine_);
}

} // namespace NBX
