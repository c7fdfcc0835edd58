#pragma once

#include <array>
#include <vector>

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/color.h>
#include <nbx/object/so.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

/// Polygons over a sequence of vertices. Normals, colours and texture coordinates are given for each vertex;
/// an index sequence, where there is one, says which vertices make the polygons. Front faces wind
/// counter-clockwise as seen in the picture.
///
/// The sequences are kept, not copied. Who changes the elements of one calls `modified()` on the set.
class PolygonSet : public Shape {
    NBX_STORED_CLASS(PolygonSet, Shape)
public:
    enum PrimitiveType {
        PT_TriangleStrip = 3,
        PT_TriangleFan = 4,
        PT_Triangles = 5,
        PT_Quads = 6,
    };
    using Vertices = Iterator<Vector3Base<double>>;
    using Indices = Iterator<unsigned>;
    using Colors = Iterator<Color>;
    static constexpr unsigned maxTextureUnits = 8;

    /// Triangles without vertices.
    PolygonSet();
    explicit PolygonSet(PrimitiveType type, SO<Vertices> vertices = nullptr, SO<Indices> indices = nullptr);

    PrimitiveType getPrimitiveType() const { return type_; }
    void setPrimitiveType(PrimitiveType type);

    /// Any of the sequences may be null.
    void setVertexIterator(SO<Vertices> vertices);
    void setIndexIterator(SO<Indices> indices);
    void setNormalIterator(SO<Vertices> normals);
    void setColorIterator(SO<Colors> colors);
    /// Texture coordinates s, t, r of one texture unit. A unit beyond the last is reported.
    void setTextureIterator(SO<Vertices> coordinates, unsigned unit = 0);

    const SO<Vertices> & newVertexIterator() const { return vertices_; }
    const SO<Indices> & newIndexIterator() const { return indices_; }
    const SO<Vertices> & newNormalIterator() const { return normals_; }
    const SO<Colors> & newColorIterator() const { return colors_; }
    SO<Vertices> newTextureIterator(unsigned unit = 0) const;

    /// Number of triangles that the polygons fall into, degenerate ones included. O(1).
    unsigned triangles() const;
    /// The vertex numbers of triangle `i`, in front-face order. False when one lies beyond the vertices.
    /// O(1).
    bool triangle(unsigned i, std::array<unsigned, 3> & vertices) const;

    /// The box of all vertices, kept until the set is modified.
    Bounds boundingBox() const override;
    void modified() override;
    void acceptChildren(std::vector<Visitable *> & children) const override;
    /// Attributes "primitiveType", "vertices", "indices", "normals", "colors", "textureUnits" and, for each
    /// unit i, "texture_i".
    void serialize(SerializationManager & m) override;

private:
    unsigned corners() const;

    PrimitiveType type_ = PT_Triangles;
    SO<Vertices> vertices_;
    SO<Indices> indices_;
    SO<Vertices> normals_;
    SO<Colors> colors_;
    std::vector<SO<Vertices>> textures_;
    mutable Bounds box_;
    mutable bool boxValid_ = false;
};

} // namespace NBX
