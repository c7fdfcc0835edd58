#pragma once

#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

namespace ZMT::CORE {

/// A square window of the lattice of a `ChunkedLodTerrain` and the threshold of its mesh, which halves from
/// level to level. The box is in scene coordinates as they were when the patch was made, and the mesh in
/// those of its first picture.
class ChunkedLodTerrain::Patch : public GeometryPatch {
    NBX_CLASS(ChunkedLodTerrain::Patch, GeometryPatch)
public:
    /// `size` is `2^k + 1` lattice vertices, and `x` and `y` are multiples of `2^k`; `threshold` is in steps
    /// of the terrain's height scale.
    Patch(const NBX::SO<ChunkedLodTerrain> & terrain, unsigned x, unsigned y, unsigned size,
          unsigned short threshold, double wall);
    ~Patch() override;

    NBX::SO<GeometryData> data() const override;
    /// Quarters that lie outside the raster do not exist.
    unsigned children() const override;
    /// Makes all children on first use.
    NBX::SO<GeometryPatch> child(unsigned i) const override;

    const NBX::SO<ChunkedLodTerrain> & terrain() const { return terrain_; }
    unsigned x() const { return x_; }
    unsigned y() const { return y_; }
    unsigned size() const { return size_; }
    unsigned short threshold() const { return threshold_; }
    /// For the painter, which may have to make the mesh coarser.
    void setThreshold(unsigned short threshold) const { threshold_ = threshold; }

    /// Triangles of the surface, without skirts; 0 before it was first painted, which tells.
    unsigned triangles() const { return triangles_; }
    void setTriangles(unsigned triangles) const { triangles_ = triangles; }

    /// The shapes that the painter builds on first use, and keeps here: the surface with skirts, and the
    /// outer wall. They belong to the engine that first painted the patch; render thread only.
    NBX::SO<NBX::Shape> & surfaceMesh() const { return surfaceMesh_; }
    NBX::SO<NBX::Shape> & outerWallMesh() const { return outerWallMesh_; }

private:
    bool isInsideX() const;
    bool isInsideY() const;
    void addChildAt(unsigned x, unsigned y);

    NBX::SO<ChunkedLodTerrain> terrain_;
    unsigned x_, y_, size_;
    mutable unsigned short threshold_;
    mutable NBX::SO<NBX::Shape> surfaceMesh_;
    mutable NBX::SO<NBX::Shape> outerWallMesh_;
    mutable unsigned triangles_ = 0;
};

} // namespace ZMT::CORE
