#pragma once

#include <utility>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/frame/terraingeometryeffect.h>
#include <zmt/core/terrain/geometry/grid/gridterrainpaintergl.h>

namespace NBX {
class ColorBufferGL;
}

namespace ZMT::CORE {
class TerrainPaintingGL;
}

namespace ZMT::CORE::GRID {

class GridTerrain;
class GridTerrainTile;

/// What one painting of one `GridTerrain` goes by. Points and boxes are in grid space; only the textures'
/// side, in `painting`, is in the frame in which the terrain stands, since textures lie in map coordinates.
struct GridTerrainFrame {
    using Point = NBX::Vector3Base<double>;

    TerrainPaintingGL & painting;
    NBX::SO<GridTerrain> terrain;
    NBX::SO<GridTerrainTile> root;
    NBX::SO<const NBX::ViewInfo> viewInfo{};
    Point nearPoint{}; ///< where the line of sight meets the near plane
    std::vector<NBX::SO<TerrainGeometryEffect>> geometryEffects{}; ///< from the top of the stack downwards
    std::vector<NBX::Bounds> drapedBoxes{};  ///< of draped triangles, from the ground's lowest height on
    NBX::SO<NBX::ColorBufferGL> alphaTest{}; ///< the scene's for colours; null without one
    bool isBlocking = false;                 ///< everything is loaded now
    bool isRenderingEnabled = true;
    bool countsFragments = true;                   ///< by occlusion queries
    double geometryError = 1.0;                    ///< in pixels
    GridTerrainPainterGL::Statistics statistics{}; ///< but for what the lists below count
    std::vector<const GridTerrainTile *> chosen{};
    std::vector<const GridTerrainTile *> missing{}; ///< wanted, but not there
    /// Those whose depth was drawn, with their triangles, borders included.
    std::vector<std::pair<const GridTerrainTile *, unsigned>> drawn{};

    /// Whether an effect wants finer textures than those of the tile.
    bool wantsTextureDetail(const GridTerrainTile & tile) const;
    bool meetsDrapedBox(const NBX::Bounds & box) const;
};

} // namespace ZMT::CORE::GRID
