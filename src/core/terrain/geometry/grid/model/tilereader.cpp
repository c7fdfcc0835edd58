#include "tilereader.h"

#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

namespace ZMT::CORE::GRID {

NBX::SO<GridTerrainTileData> TileReader::heights(GridTerrainTile & tile) {
    NBX::SO<GridTerrainTileData> data = tile.tileData();
    if (!data && !loadedOnly_) {
        data = tile.requestTileData(tileAtOnce, true, nullptr);
        isIncomplete_ = isIncomplete_ || !data;
    }
    // Tiles above are not read once more: where one read has failed, each might take its time to fail as
    // well.
    for (NBX::SO<GridTerrainTile> above = tile.parent(); !data && above; above = above->parent())
        data = above->tileData();
    return data;
}

bool TileReader::learn(GridTerrainTile & tile, NBX::SO<GridTerrainTileData> & data) {
    if (tile.gridBoundingBox().isDefined()) return true;
    data = heights(tile);
    return tile.gridBoundingBox().isDefined();
}

} // namespace ZMT::CORE::GRID
