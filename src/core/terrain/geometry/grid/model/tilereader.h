#pragma once

#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

namespace ZMT::CORE::GRID {

/// The priority of a tile that somebody waits for.
inline constexpr double tileAtOnce = 1e42;

/// Gets the heights of tiles for those who ask for answers instead of pictures: at once, or not at all.
class TileReader {
public:
    /// With `loadedOnly` nothing is read.
    explicit TileReader(bool loadedOnly) : loadedOnly_(loadedOnly) {}

    /// Those of `tile`, or of the finest tile above it that has its in memory; null without any.
    NBX::SO<GridTerrainTileData> heights(GridTerrainTile & tile);
    /// Whether the box and the children of `tile` are known by now. Reads it where they are not; `data` are
    /// the heights that stand for it where they stay unknown.
    bool learn(GridTerrainTile & tile, NBX::SO<GridTerrainTileData> & data);
    bool loadedOnly() const { return loadedOnly_; }
    /// Something that was to be read could not be: a coarser tile has stood in.
    bool isIncomplete() const { return isIncomplete_; }

private:
    bool loadedOnly_;
    bool isIncomplete_ = false;
};

} // namespace ZMT::CORE::GRID
