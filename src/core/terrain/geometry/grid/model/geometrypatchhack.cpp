#include "geometrypatchhack.h"

#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

namespace ZMT::CORE::GRID {

namespace {

/// What a tile deviates from the finest heights is not known.
constexpr double s_unknownError = 0.0;
constexpr double s_noWall = 0.0;
constexpr double s_atOnce = 1e42;

} // namespace

NBX_CLASS_IMPL(GeometryPatchHACK, GeometryPatch)

GeometryPatchHACK::GeometryPatchHACK(GridTerrainTile * tile, GridTerrain * terrain)
    : GeometryPatch(NBX::Bounds(), s_unknownError, s_noWall, nullptr), tile_(tile), terrain_(terrain) {}

NBX::Bounds GeometryPatchHACK::boundingBox() const {
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    return tile ? tile->visBoundingBox() : NBX::Bounds();
}

NBX::SO<GeometryData> GeometryPatchHACK::data() const {
    const NBX::SO<GridTerrain> terrain = terrain_.lock();
    return terrain ? terrain->data() : nullptr;
}

NBX::SO<GeometryPatch> GeometryPatchHACK::parent() const {
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    const NBX::SO<GridTerrainTile> parent = tile ? tile->parent() : nullptr;
    return parent ? parent->geometryPatchHACK(terrain_.lock()) : nullptr;
}

unsigned GeometryPatchHACK::children() const {
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    return tile && tile->hasChildren(false) ? 4 : 0;
}

NBX::SO<GeometryPatch> GeometryPatchHACK::child(unsigned i) const {
    NBX_CHECK(i < children(), L"i out of range");
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    const NBX::SO<GridTerrainTile> child = tile && i < 4 ? tile->child(i, false) : nullptr;
    if (!child) return nullptr;
    if (!child->gridBoundingBox().isDefined() && !child->requestTileData(s_atOnce, true, nullptr))
        return nullptr;
    return child->geometryPatchHACK(terrain_.lock());
}

void GeometryPatchHACK::unloadChildren() {
    if (const NBX::SO<GridTerrainTile> tile = tile_.lock()) tile->unloadChildren();
}

} // namespace ZMT::CORE::GRID
