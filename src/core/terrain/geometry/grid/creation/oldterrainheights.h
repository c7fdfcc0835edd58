#pragma once

#include <vector>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

#include "tilesamples.h"

namespace ZMT::CORE::GRID {

/// The heights of the old terrain where a tile of the new one lies. Any thread.
struct OldTile {
    NBX::SO<GridTerrainTileData> data; ///< null where the old terrain has nothing
    /// How many times finer the new tile is.
    std::uint32_t halvings = 0;
    /// The height of the old value v is `height0 + v * heightStep`.
    double height0 = 0.0, heightStep = 0.0;

    /// What became of the samples of a tile.
    struct Merged {
        bool hasNew = false; ///< some are not those of the old terrain
        bool hasOld = false; ///< the old terrain has some of this resolution
    };

    /// Gives samples of `tile` their old heights, where there are any: the undefined ones, and where `isOwn`
    /// is given, those that it does not name: they only stand for heights around their place.
    Merged merge(TileSamples & tile, const HeightScale & scale, const std::vector<bool> * isOwn) const;
};

/// A terrain whose heights show where a new one has none. Its root covers the same square as the new one's,
/// and its finest samples lie `halvings` times further apart. The thread of that terrain.
class OldTerrainHeights {
public:
    /// Behind so many tiles the terrain lets all of its tiles go: few of them are asked for again, and of a
    /// large terrain the tiles alone, without heights, would fill the memory.
    static constexpr unsigned s_tilesKept = 16384;

    OldTerrainHeights(const NBX::SO<GridTerrain> & terrain, std::uint32_t halvings);

    /// Where the old terrain may have heights, in the new one's lattice.
    LatticeArea area() const;
    /// Lowest and highest height.
    double minHeight() const;
    double maxHeight() const;
    /// Waits for the tile. Throws `NBX::IOError` when it cannot be read.
    OldTile tileAt(const TerrainFileFormat::TilePlace & place) const;

private:
    NBX::SO<GridTerrain> terrain_;
    std::uint32_t halvings_;
    mutable unsigned tilesAsked_ = 0; ///< since they were let go
};

} // namespace ZMT::CORE::GRID
