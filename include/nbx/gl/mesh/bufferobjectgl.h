#pragma once

#include <cstddef>

#include <nbx/gl/context/namegl.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

class EngineGL;

/// A block of memory of the graphics card. Needs a current context; all contexts see the same content.
class BufferObjectGL : public SharedObj {
    NBX_CLASS(BufferObjectGL, SharedObj)
public:
    /// What the bytes are, which decides the target they are bound to.
    enum DataType { DT_VertexAttributes, DT_VertexIndices, DT_PixelPack, DT_PixelUnpack };
    /// How often the content changes in relation to its use.
    enum UsagePattern { UP_Stream, UP_Static, UP_Dynamic };
    enum MapAccess { MA_Read, MA_Write, MA_ReadWrite };

    /// Allocates `size` bytes and fills them from `data`; with null they are undefined. A null engine is
    /// reported under "engine" with "no engine"; the buffer then stays empty.
    BufferObjectGL(EngineGL * engine, std::size_t size, const void * data, DataType type, UsagePattern usage);

    /// Binds the buffer to the target of its `dataType()`. Another one bound there is not remembered.
    void bind(EngineGL * engine) const;
    /// Leaves the target of `dataType()` without a buffer.
    void unbind(EngineGL * engine) const;
    /// What the entry points that take a pointer or an offset want for byte `offset` of the bound buffer.
    const void * boundAddress(std::size_t offset) const { return reinterpret_cast<const void *>(offset); }

    /// Replaces `size` bytes from `offset` on. A block that does not lie inside is reported, and ignored.
    void update(std::size_t offset, const void * data, std::size_t size);
    /// The content in main memory until `unmapPointer`; null when the driver refuses or when it is mapped.
    void * mapPointer(MapAccess access);
    /// False when the content was lost while it was mapped, or when it was not mapped.
    bool unmapPointer() const;

    DataType dataType() const { return type_; }
    /// The bytes are taken as something else from now on.
    void changeType(DataType type) { type_ = type; }
    UsagePattern usagePattern() const { return usage_; }
    std::size_t bytes() const { return bytes_; }
    /// The name, 0 when the buffer could not be made.
    unsigned name() const { return name_.get(); }

private:
    NameGL name_;
    std::size_t bytes_ = 0;
    DataType type_;
    UsagePattern usage_;
    mutable bool mapped_ = false;
};

} // namespace NBX
