#include "gridterrainframe.h"

#include <algorithm>

#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

#include "core/terrain/geometry/view/terrainpaintinggl.h"

namespace ZMT::CORE::GRID {

bool GridTerrainFrame::wantsTextureDetail(const GridTerrainTile & tile) const {
    if (!painting.hasEffects()) return false;
    const NBX::SO<GeometryPatch> patch = tile.geometryPatchHACK(terrain);
    return painting.wantsDetail(*patch, patch->boundingBox().nearestPoint(painting.nearPoint()));
}

bool GridTerrainFrame::meetsDrapedBox(const NBX::Bounds & box) const {
    return std::any_of(drapedBoxes.begin(), drapedBoxes.end(),
                       [&](const NBX::Bounds & draped) { return draped.intersects(box); });
}

} // namespace ZMT::CORE::GRID
