#include <nbx/gl/mesh/bufferobjectgl.h>

#include <GL/glew.h>

#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(BufferObjectGL, SharedObj)

namespace {

GLenum targetOf(BufferObjectGL::DataType type) {
    switch (type) {
    case BufferObjectGL::DT_VertexIndices:
        return GL_ELEMENT_ARRAY_BUFFER;
    case BufferObjectGL::DT_PixelPack:
        return GL_PIXEL_PACK_BUFFER;
    case BufferObjectGL::DT_PixelUnpack:
        return GL_PIXEL_UNPACK_BUFFER;
    case BufferObjectGL::DT_VertexAttributes:
        break;
    }
    return GL_ARRAY_BUFFER;
}

GLenum usageOf(BufferObjectGL::UsagePattern usage) {
    switch (usage) {
    case BufferObjectGL::UP_Stream:
        return GL_STREAM_DRAW;
    case BufferObjectGL::UP_Dynamic:
        return GL_DYNAMIC_DRAW;
    case BufferObjectGL::UP_Static:
        break;
    }
    return GL_STATIC_DRAW;
}

GLenum accessOf(BufferObjectGL::MapAccess access) {
    switch (access) {
    case BufferObjectGL::MA_Read:
        return GL_READ_ONLY;
    case BufferObjectGL::MA_Write:
        return GL_WRITE_ONLY;
    case BufferObjectGL::MA_ReadWrite:
        break;
    }
    return GL_READ_WRITE;
}

/// Binds a buffer where drawing never looks for one, and leaves that target as found.
class CopyBinding {
public:
    explicit CopyBinding(unsigned name) {
        glGetIntegerv(GL_COPY_WRITE_BUFFER_BINDING, &before_);
        glBindBuffer(GL_COPY_WRITE_BUFFER, name);
    }
    ~CopyBinding() { glBindBuffer(GL_COPY_WRITE_BUFFER, GLuint(before_)); }
    CopyBinding(const CopyBinding &) = delete;
    CopyBinding & operator=(const CopyBinding &) = delete;

private:
    GLint before_ = 0;
};

} // namespace

BufferObjectGL::BufferObjectGL(EngineGL * engine, std::size_t size, const void * data, DataType type,
                               UsagePattern usage)
    : type_(type), usage_(usage) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    name_ = NameGL::generate(NameGL::NK_Buffer);
    if (!name_) return;
    const CopyBinding binding(name_.get());
    glBufferData(GL_COPY_WRITE_BUFFER, GLsizeiptr(size), data, usageOf(usage));
    GLint64 allocated = 0;
    glGetBufferParameteri64v(GL_COPY_WRITE_BUFFER, GL_BUFFER_SIZE, &allocated);
    bytes_ = std::size_t(allocated);
    if (bytes_ != size) NBX_FAILURE(L"cannot allocate a buffer of " << size << L" bytes");
}

void BufferObjectGL::bind(EngineGL * engine) const {
    NBX_CHECK(engine, L"no engine");
    if (engine) glBindBuffer(targetOf(type_), name_.get());
}

void BufferObjectGL::unbind(EngineGL * engine) const {
    NBX_CHECK(engine, L"no engine");
    if (engine) glBindBuffer(targetOf(type_), 0);
}

void BufferObjectGL::update(std::size_t offset, const void * data, std::size_t size) {
    const bool inside = offset <= bytes_ && size <= bytes_ - offset;
    NBX_CHECK(data, L"no data");
    NBX_CHECK(inside, L"range error: [" << 0 << L", " << bytes_ << L"), " << offset << L" + " << size);
    if (!data || !inside || size == 0) return;
    const CopyBinding binding(name_.get());
    glBufferSubData(GL_COPY_WRITE_BUFFER, GLintptr(offset), GLsizeiptr(size), data);
    modified();
}

void * BufferObjectGL::mapPointer(MapAccess access) {
    NBX_CHECK(!mapped_, L"the buffer is mapped already");
    if (mapped_ || !name_) return nullptr;
    const CopyBinding binding(name_.get());
    void * pointer = glMapBuffer(GL_COPY_WRITE_BUFFER, accessOf(access));
    mapped_ = pointer != nullptr;
    if (mapped_ && access != MA_Read) modified();
    return pointer;
}

bool BufferObjectGL::unmapPointer() const {
    NBX_CHECK(mapped_, L"the buffer is not mapped");
    if (!mapped_) return false;
    mapped_ = false;
    const CopyBinding binding(name_.get());
    return glUnmapBuffer(GL_COPY_WRITE_BUFFER) == GL_TRUE;
}

} // namespace NBX
