#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <nbx/gl/mesh/basevertexattributebufferobjectgl.h>
#include <nbx/math/bounds.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

/// A mesh that lies in buffers of the graphics card: vertices, optionally indices, and ranges that part them
/// into strips, fans or polygons. It belongs to the thread of the canvases that paint it.
///
/// The ranges are 32-bit numbers: entry i is one past the last index, or the last vertex without an index
/// buffer, of primitive i, which begins where primitive i - 1 ends. Without ranges everything is one
/// primitive. What reaches beyond the buffers is reported once, and not drawn.
class VertexAttributeShapeGL : public Shape {
    NBX_CLASS(VertexAttributeShapeGL, Shape)
public:
    enum PrimitiveType {
        PT_Points = 0,
        PT_Lines = 1,
        PT_LineLoop = 2,
        PT_LineStrip = 3,
        PT_Triangles = 4,
        PT_TriangleStrip = 5,
        PT_TriangleFan = 6,
        PT_Quads = 7,
        PT_QuadStrip = 8,
        PT_Polygon = 9
    };
    static constexpr unsigned maxTextureUnits = 8;

    /// `vertices` are positions of 2 to 4 components. `indices` are of 16 bits, may be null, and have the
    /// data type `DT_VertexIndices`; `ranges` may be null. `box` is in the frame of the vertices, and may be
    /// undefined.
    VertexAttributeShapeGL(PrimitiveType type, SO<BaseVertexAttributeBufferObjectGL> vertices,
                           SO<BufferObjectGL> indices = nullptr, SO<BufferObjectGL> ranges = nullptr,
                           const Bounds & box = Bounds());
    /// Makes the buffers of indices, where there are any, and of ranges, and reads nothing back from the card
    /// as long as nobody changes these.
    VertexAttributeShapeGL(EngineGL * engine, PrimitiveType type,
                           SO<BaseVertexAttributeBufferObjectGL> vertices,
                           const std::vector<std::uint16_t> & indices,
                           const std::vector<std::uint32_t> & ranges);

    Bounds boundingBox() const override { return box_; }
    void setBoundingBox(const Bounds & box);

    PrimitiveType primitiveType() const { return type_; }
    const SO<BaseVertexAttributeBufferObjectGL> & vertices() const { return vertices_; }
    const SO<BufferObjectGL> & indices() const { return indices_; }
    const SO<BufferObjectGL> & ranges() const { return ranges_; }

    /// Attributes of the vertices, each with as many entries as there are vertices; null for none. Normals
    /// have 3 components, colours 3 or 4, texture coordinates 1 to 4. Units without texture coordinates of
    /// their own take those of unit 0.
    void setNormals(SO<BaseVertexAttributeBufferObjectGL> normals);
    void setColors(SO<BaseVertexAttributeBufferObjectGL> colors);
    void setTexCoords(unsigned unit, SO<BaseVertexAttributeBufferObjectGL> texCoords);
    const SO<BaseVertexAttributeBufferObjectGL> & normals() const { return normals_; }
    const SO<BaseVertexAttributeBufferObjectGL> & colors() const { return colors_; }
    /// Null for a unit beyond the last.
    SO<BaseVertexAttributeBufferObjectGL> texCoords(unsigned unit) const;

    /// The primitives, read from the buffers on first use and when these changed; a context must be current.
    struct Primitives {
        std::vector<int> firsts;           ///< first index, or first vertex without an index buffer
        std::vector<int> counts;           ///< number of indices or vertices
        std::vector<const void *> offsets; ///< byte offsets of `firsts` in the index buffer
    };
    const Primitives & primitives() const;

private:
    SO<BaseVertexAttributeBufferObjectGL> vertices_, normals_, colors_;
    std::array<SO<BaseVertexAttributeBufferObjectGL>, maxTextureUnits> texCoords_;
    SO<BufferObjectGL> indices_, ranges_;
    PrimitiveType type_;
    Bounds box_;
    std::uint64_t buffersTransactionNo() const;
    void readPrimitives() const;
    /// Null: there is no such buffer.
    void setPrimitives(const std::vector<std::uint16_t> * indices,
                       const std::vector<std::uint32_t> * ranges) const;

    mutable Primitives primitives_;
    mutable std::uint64_t primitivesTransactionNo_ = ~std::uint64_t(0); ///< that of the buffers when read
};

} // namespace NBX
