#pragma once

#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

namespace ZMT::CORE::GRID {

/// A tile as a geometry patch, since textures know nothing else. The tile keeps it as long as it lives
/// itself: caches of textures know their patches by identity, so that a patch for each call would never find
/// again what was made for the one before. Watches tile and terrain. Render thread.
class GeometryPatchHACK : public GeometryPatch {
    NBX_CLASS(GeometryPatchHACK, GeometryPatch)
public:
    GeometryPatchHACK(GridTerrainTile * tile, GridTerrain * terrain);

    /// In scene coordinates; undefined when the tile is gone, or was never read.
    NBX::Bounds boundingBox() const override;
    /// That of the terrain.
    NBX::SO<GeometryData> data() const override;
    NBX::SO<GeometryPatch> parent() const override;
    /// 4, or 0 where the tile cannot be split.
    unsigned children() const override;
    /// Reads a child that never was, and waits, since its box is unknown before. Null where nothing lies, or
    /// can be read.
    NBX::SO<GeometryPatch> child(unsigned i) const override;
    void unloadChildren() override;
    /// Cells of which a corner has no height are not drawn.
    Description description() const override;
    /// Without what closes the borders towards coarser tiles.
    StripMesh surface(const NBX::Vector3Base<double> & zero) const override;
    /// The boxes of the children are known, as far as any lie there; their heights may be gone again.
    bool childrenAreInMemory() const override;

private:
    NBX::WO<GridTerrainTile> tile_;
    NBX::WO<GridTerrain> terrain_;
};

} // namespace ZMT::CORE::GRID
