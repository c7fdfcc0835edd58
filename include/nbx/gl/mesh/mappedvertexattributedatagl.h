#pragma once

#include <cstdint>
#include <vector>

#include <nbx/gl/mesh/basevertexattributebufferobjectgl.h>
#include <nbx/object/id.h>
#include <nbx/object/so.h>

namespace NBX {

/// The attributes of the vertices of a mesh as named buffers in main memory, which go to the graphics card
/// when they are first drawn. They can be stored, also by those who have no context.
///
/// Positions are floats in the buffers that are made here: 24 bits relative to the origin of the mesh. Up to
/// 16 km from it a coordinate lies within half a millimetre of where it was, so that meshes in map
/// coordinates belong under a transformation that holds their origin in doubles.
class MappedVertexAttributeDataGL : public SharedObj {
    NBX_STORED_CLASS(MappedVertexAttributeDataGL, SharedObj)
public:
    static constexpr unsigned maxTextureUnits = 8;
    /// The names of what is drawn; buffers of other names are kept, and stored.
    static const ID VERTEX_ID, NORMAL_ID, COLOR_ID;
    /// Texture coordinates of one unit; a unit beyond the last is reported and gives that of unit 0.
    static const ID & TEXCOORD_ID(unsigned unit);

    /// One attribute, tightly packed: `count` times `components` numbers of one type.
    class Buffer : public SharedObj {
        NBX_CLASS(Buffer, SharedObj)
    public:
        /// Filled with zeros. `componentType` is one that `BaseVertexAttributeBufferObjectGL` knows,
        /// `components` 1 to 4; anything else is reported, and the buffer is empty.
        Buffer(unsigned componentType, unsigned components, unsigned count);
        /// A copy of as many numbers from `data`.
        Buffer(unsigned componentType, unsigned components, unsigned count, const void * data);
        ~Buffer() override;

        unsigned componentType() const { return componentType_; }
        unsigned components() const { return components_; }
        unsigned count() const { return count_; }
        /// Bytes of one element.
        unsigned elementBytes() const;
        std::size_t bytes() const { return bytes_.size(); }

        const void * data() const { return bytes_.data(); }
        /// The content for writing, until `unmapPointer`, which has it sent to the card again.
        void * mapPointer() { return bytes_.data(); }
        void unmapPointer() { modified(); }
        /// Component `component` of element `i` as a number; both are in range.
        double value(unsigned i, unsigned component) const;

        /// The buffer on the card with the content of this one; made, or refreshed, when it is asked for.
        /// Null for an empty one. Needs a current context.
        SO<BaseVertexAttributeBufferObjectGL> bufferObject(EngineGL * engine,
                                                           BufferObjectGL::UsagePattern usage) const;
        /// Whether the card has it.
        bool isUploaded() const { return bool(object_); }

    private:
        unsigned componentType_, components_, count_;
        std::vector<std::uint8_t> bytes_;
        mutable SO<BaseVertexAttributeBufferObjectGL> object_;
        mutable std::uint64_t uploadedTransactionNo_ = 0;
    };

    explicit MappedVertexAttributeDataGL(BufferObjectGL::UsagePattern usage = BufferObjectGL::UP_Static);
    ~MappedVertexAttributeDataGL() override;

    BufferObjectGL::UsagePattern usagePattern() const { return usage_; }
    /// The names in the order in which they came.
    std::vector<ID> names() const;
    /// Null without one of that name.
    SO<Buffer> buffer(const ID & name) const;
    /// The same on loan.
    const Buffer * find(const ID & name) const;
    /// Replaces the one of that name; null removes it.
    void setBuffer(const ID & name, SO<Buffer> buffer);
    /// Number of elements of the positions; 0 without any.
    unsigned vertices() const;
    /// Bytes of all buffers.
    std::size_t bytes() const;

    /// Whether OpenGL can take the buffers: there are positions, what is drawn has types and numbers of
    /// components that it takes, and as many elements as there are positions.
    bool isDrawable() const;

    /// Attributes "usagePattern" (default 1), then in a container "buffers" "Size" and for each "name",
    /// "componentType", "components", "count" and the raw block "data". Throws `IOError` for buffers that
    /// cannot be, and where the stream holds less than it tells.
    void serialize(SerializationManager & m) override;

private:
    struct Entry {
        ID name;
        SO<Buffer> buffer;
    };
    void readBuffers(SerializationManager & m);
    void writeBuffers(SerializationManager & m) const;

    BufferObjectGL::UsagePattern usage_;
    std::vector<Entry> entries_;
};

/// While an object lives the buffers of a mesh are bound and its vertex arrays, and no others, enabled; at
/// its end the arrays, the bound buffers and the current attributes are as they were. Primitives are drawn
/// meanwhile by `draw` and `drawIndexed`.
class MappedVertexAttributeBindingGL {
public:
    /// Data that is not drawable is reported, and not bound. Texture unit i gets the coordinates of unit
    /// `sets[i]`, units beyond `sets` those of their own; where the data has none, they get those of unit 0.
    MappedVertexAttributeBindingGL(EngineGL * engine, const MappedVertexAttributeDataGL & data,
                                   const std::vector<unsigned> & sets = {});
    ~MappedVertexAttributeBindingGL();
    MappedVertexAttributeBindingGL(const MappedVertexAttributeBindingGL &) = delete;
    MappedVertexAttributeBindingGL & operator=(const MappedVertexAttributeBindingGL &) = delete;

    bool isBound() const { return isBound_; }
    /// Primitives of OpenGL's type `primitiveType` from `count` vertices from `first` on. A range that does
    /// not lie inside the data is reported, and not drawn.
    void draw(unsigned primitiveType, int first, int count) const;
    /// The same from all of `indices`, which have one component of 16 or 32 bits and lie inside the data.
    void drawIndexed(unsigned primitiveType, const MappedVertexAttributeDataGL::Buffer & indices) const;

private:
    EngineGL * engine_;
    BufferObjectGL::UsagePattern usage_;
    unsigned vertices_;
    bool isBound_;
};

} // namespace NBX
