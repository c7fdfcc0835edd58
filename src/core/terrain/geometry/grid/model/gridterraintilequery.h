#pragma once

#include "tilereader.h"
#include "tilesquare.h"
#include "tilesurface.h"

#include "core/file/waitlimit.h"
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

namespace ZMT::CORE::GRID {

/// One question about heights to a tree of tiles: which tiles answer it, and what is read for that. Goes down
/// to the finest tiles, and reads no others than those that the answer lies in; with `loadedOnly` it reads
/// nothing, and goes on below a tile only where all of its children are in memory.
///
/// Where a tile cannot be read, or does not come in time, the finest one above it that is in memory stands
/// in, with the part of it that lies there; unless nothing was to be read, that is reported. All tiles
/// together are waited for as long as one wait may take, or a `Patience` lasts. All coordinates are those of
/// grid space; those that are no numbers, or lie anywhere, are answered by nothing.
class GridTerrainTileQuery {
public:
    using Point = GridTerrainTile::Point;

    explicit GridTerrainTileQuery(bool loadedOnly) : reader_(loadedOnly) {}
    ~GridTerrainTileQuery();
    GridTerrainTileQuery(const GridTerrainTileQuery &) = delete;
    GridTerrainTileQuery & operator=(const GridTerrainTileQuery &) = delete;

    /// Negative infinity where there is none.
    double height(GridTerrainTile & tile, double x, double y);
    /// Where `ray` first meets the surface below `tile`.
    bool firstHit(GridTerrainTile & tile, const NBX::Ray & ray, Point & point);
    /// Whether coarser heights have stood in. Who asks tells it: nothing is reported then.
    bool isCoarse() {
        isTold_ = true;
        return reader_.isIncomplete();
    }

private:
    /// A tile that a ray enters at the parameter `enter`.
    struct Entered {
        double enter;
        NBX::SO<GridTerrainTile> tile;
        TileSquare square;
    };

    bool goesOnBelow(const GridTerrainTile & tile) const;
    void follow(GridTerrainTile & tile, const TileSquare & square, const GridRay & ray);
    std::vector<Entered> enteredChildren(GridTerrainTile & tile, const TileSquare & square,
                                         const GridRay & ray) const;
    void test(const GridTerrainTileData * data, const TileSquare & square, const GridRay & ray);

    const IMPL::WaitLimit limit_;
    TileReader reader_;
    bool isTold_ = false;
    double nearest_ = std::numeric_limits<double>::infinity(); ///< parameter of the nearest hit
};

} // namespace ZMT::CORE::GRID
