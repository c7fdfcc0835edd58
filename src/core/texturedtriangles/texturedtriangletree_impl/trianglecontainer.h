#pragma once

#include <array>
#include <optional>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/math/color.h>

#include "trianglecollector.h"

namespace ZMT::CORE {

/// All triangles of a tree that is being built, each with an identity. The meshes stay where they are; only
/// the coordinates of set 0 change. What is asked for a triangle that does not exist is reported, and zero.
class TriangleContainer : public NBX::SharedObj {
    NBX_CLASS(TriangleContainer, NBX::SharedObj)
public:
    using TexturedMesh = TriangleCollector::TexturedMesh;
    using Vector = NBX::Vector3Base<double>;

    /// Ordered by mesh, then by triangle.
    struct TriangleID {
        int mesh = 0;     ///< number of the mesh in the container
        int triangle = 0; ///< number of the triangle in its mesh
        bool operator==(const TriangleID &) const = default;
        bool operator<(const TriangleID & other) const {
            return mesh != other.mesh ? mesh < other.mesh : triangle < other.triangle;
        }
    };
    /// Corners, and the coordinate of one set at each.
    struct Triangle {
        std::array<Vector, 3> vertices, texCoords;
    };

    /// Meshes of triangles without indices. A null sequence is reported under "meshes", and an empty one
    /// stands in.
    explicit TriangleContainer(NBX::SO<NBX::Iterator<TexturedMesh>> meshes);
    ~TriangleContainer() override;

    unsigned numberOfMeshes() const { return meshes_->size(); }
    TexturedMesh mesh(unsigned i) const { return meshes_->get(i); }
    const NBX::SO<NBX::Iterator<TexturedMesh>> & meshes() const { return meshes_; }
    unsigned numberOfTriangles(unsigned mesh) const;

    /// In square world units, computed once.
    double area(const TriangleID & id) const;
    /// With the coordinates of set 0; zero coordinates where there is no such set.
    Triangle triangle(const TriangleID & id) const { return triangle(id, 0); }
    /// With the coordinates of set 1.
    Triangle triangleOfSet1(const TriangleID & id) const { return triangle(id, 1); }
    /// The colour of vertex `k`, 0 to 2; white where the mesh has no colours.
    NBX::Color color(const TriangleID & id, unsigned k) const;
    /// The number of the triangle's model in s; nothing where the mesh tells none.
    std::optional<Vector> model(const TriangleID & id) const;
    /// Writes the coordinates of set 0 in place.
    void setTexCoords(const TriangleID & id, const std::array<Vector, 3> & texCoords);

private:
    bool contains(const TriangleID & id) const;
    const NBX::PolygonSet & geometry(const TriangleID & id) const { return *geometries_[unsigned(id.mesh)]; }
    Triangle triangle(const TriangleID & id, unsigned set) const;

    NBX::SO<NBX::Iterator<TexturedMesh>> meshes_;
    std::vector<NBX::SO<NBX::PolygonSet>> geometries_;       ///< per mesh
    NBX::SO<NBX::Array<NBX::SO<NBX::Array<double>>>> areas_; ///< per mesh, per triangle
};

} // namespace ZMT::CORE
