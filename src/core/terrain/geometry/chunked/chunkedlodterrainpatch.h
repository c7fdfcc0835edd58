#pragma once

#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodwindow.h>

namespace ZMT::CORE {

/// A square window of the lattice of a `ChunkedLodTerrain` and the threshold of its mesh, which halves from
/// level to level, as far as 16-bit numbers permit. The box is in scene coordinates as they were when the
/// patch was made, and the mesh in those of its first picture.
///
/// Law: no vertex of the grid in the patch's area lies farther from its mesh than
/// `approximationError() * terrain()->worstErrorRatio() + terrain()->heightScale() / 2`. The second term is
/// the rounding of the heights to 16 bits.
class ChunkedLodTerrain::Patch : public GeometryPatch {
    NBX_CLASS(ChunkedLodTerrain::Patch, GeometryPatch)
public:
    /// `size` is `2^k + 1` lattice vertices, and `x` and `y` are multiples of `2^k`; `threshold` is in steps
    /// of the terrain's height scale. A patch whose strip would be too long takes a larger one, up to
    /// `coarsest`, and one without children takes 0; the error is that of the threshold taken.
    Patch(const NBX::SO<ChunkedLodTerrain> & terrain, unsigned x, unsigned y, unsigned size,
          unsigned short threshold, double wall, unsigned short coarsest = 65535);
    ~Patch() override;

    NBX::SO<GeometryData> data() const override;
    /// Cells that lie outside the raster do not count. Makes the mesh where that was not yet painted.
    Description description() const override;
    StripMesh surface(const NBX::Vector3Base<double> & zero) const override;
    /// Quarters that lie outside the raster do not exist.
    unsigned children() const override;
    /// Makes all children on first use.
    NBX::SO<GeometryPatch> child(unsigned i) const override;

    const NBX::SO<ChunkedLodTerrain> & terrain() const { return terrain_; }
    unsigned x() const { return window_.x; }
    unsigned y() const { return window_.y; }
    unsigned size() const { return window_.size; }
    /// That of the mesh as it is drawn.
    unsigned short threshold() const { return window_.threshold; }

    /// What the painter draws: the surface with skirts, and the outer wall.
    struct Meshes : NBX::SharedObj {
        NBX::SO<NBX::Shape> surface, outerWall;
        unsigned bytes = 0; ///< of their buffers
    };

    /// The shapes that the painter builds; null before the first use, and when `NBX::GraphicsMemoryManager`,
    /// which holds them, had no room for them any more. Render thread only.
    NBX::SO<Meshes> meshes() const { return meshes_.lock(); }
    NBX::SO<NBX::Shape> surfaceMesh() const;
    NBX::SO<NBX::Shape> outerWallMesh() const;
    /// With the size of the surface without skirts.
    void setMeshes(const NBX::SO<Meshes> & meshes, std::size_t vertices, std::size_t triangles) const;

private:
    Patch(const NBX::SO<ChunkedLodTerrain> & terrain, const ChunkedLodWindow & window, double wall);

    NBX::SO<ChunkedLodTerrain> terrain_;
    ChunkedLodWindow window_;
    mutable NBX::WO<Meshes> meshes_;
    mutable unsigned vertices_ = 0, triangles_ = 0; ///< 0: not yet known
};

} // namespace ZMT::CORE
