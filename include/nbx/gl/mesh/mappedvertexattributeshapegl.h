#pragma once

#include <cstdint>
#include <memory>

#include <nbx/gl/mesh/mappedvertexattributedatagl.h>
#include <nbx/gl/mesh/vertexattributeshapegl.h>

namespace NBX {

class PolygonSet;
class TriangleHierarchy;

/// A mesh whose vertices, and indices where it has some, lie in main memory and go to the graphics card when
/// it is first drawn. It can be stored, drawn, hit by rays, and turned into polygons. Meshes that only the
/// card needs are a `VertexAttributeShapeGL`.
///
/// How exact positions are, `MappedVertexAttributeDataGL` tells. It belongs to the thread of the canvases
/// that paint it.
class MappedVertexAttributeShapeGL : public Shape {
    NBX_STORED_CLASS(MappedVertexAttributeShapeGL, Shape)
public:
    using Data = MappedVertexAttributeDataGL;
    using Buffer = MappedVertexAttributeDataGL::Buffer;
    using PrimitiveType = VertexAttributeShapeGL::PrimitiveType;

    /// Triangles without vertices.
    MappedVertexAttributeShapeGL();
    /// `indices` has one component of 16 or 32 bits without sign, and may be null.
    explicit MappedVertexAttributeShapeGL(PrimitiveType type, SO<Data> data, SO<Buffer> indices = nullptr);
    /// The triangles of a set, with its normals, colours (one byte a component) and texture coordinates (two
    /// components) where these are as many as the vertices, else they are left out with a report. There are
    /// indices if the set has some, or is not of triangles. Triangles with a corner beyond the vertices are
    /// left out with a report. A null set is reported, and gives an empty mesh.
    MappedVertexAttributeShapeGL(const PolygonSet * set, BufferObjectGL::UsagePattern usage);
    ~MappedVertexAttributeShapeGL() override;

    PrimitiveType primitiveType() const { return type_; }
    /// Null only where null was given.
    const SO<Data> & data() const { return data_; }
    const SO<Buffer> & indices() const { return indices_; }

    /// Number of triangles that the primitives fall into; 0 for points and lines.
    unsigned triangles() const;
    /// The vertex numbers of triangle `i`; false when there is none, or one lies beyond the vertices. O(1).
    bool triangle(unsigned i, std::array<unsigned, 3> & vertices) const;
    /// Position of a vertex, which is in range; with fewer than three components the others are 0.
    Vector3Base<double> vertex(unsigned i) const;

    /// The same triangles as `PT_Triangles` without indices: itself where it is such a mesh.
    SO<MappedVertexAttributeShapeGL> withoutIndices();
    /// The triangles as polygons; null without any.
    SO<PolygonSet> newPolygonSet() const;

    /// The triangles as rays find them, made when it is first asked for and when these changed. Null for few
    /// triangles, and for positions that are no floats: these are tested one by one.
    const TriangleHierarchy * hierarchy() const;
    /// The triangles as they are now, however few, for who keeps them. Null for positions that are no floats.
    /// May be called by several threads at once while nothing changes.
    std::unique_ptr<const TriangleHierarchy> newHierarchy() const;

    /// Whether the data and the indices can be drawn; told once for each state of them.
    bool isDrawable() const;

    /// The box of all vertices, kept until these change.
    Bounds boundingBox() const override;

    /// Attributes "primitiveType" (default 4), "data" (null), "indexType" (0: no indices), "indexCount" and
    /// the raw block "indices". Throws `IOError` for what cannot be, and for indices beyond the vertices.
    void serialize(SerializationManager & m) override;

private:
    void readIndices(SerializationManager & m, unsigned type);
    bool indicesFit() const;
    std::uint64_t stateNo() const;

    PrimitiveType type_;
    SO<Data> data_;
    SO<Buffer> indices_;
    static constexpr std::uint64_t s_noState = ~std::uint64_t(0);
    mutable Bounds box_;
    mutable std::uint64_t boxStateNo_ = s_noState; ///< of the state whose box it is
    mutable std::shared_ptr<const TriangleHierarchy> hierarchy_;
    mutable std::uint64_t hierarchyStateNo_ = s_noState; ///< of the state whose triangles it has
    mutable bool isDrawable_ = false;
    mutable std::uint64_t drawableStateNo_ = s_noState; ///< of the state that was judged
};

} // namespace NBX
