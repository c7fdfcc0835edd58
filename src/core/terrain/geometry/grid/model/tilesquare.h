#pragma once

#include <cmath>

#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

namespace ZMT::CORE::GRID {

/// The neighbours of a tile that share a border with it.
inline constexpr unsigned bordersOfTile = 4;

/// The place of a tile in grid space, whether there are heights or not: that of the root begins at 0, and a
/// child has a quarter of its parent's. Known before the tile is read, other than its box.
struct TileSquare {
    double x = 0.0, y = 0.0, side = 0.0;

    static TileSquare of(const GridTerrainTile & tile);

    double endX() const { return x + side; }
    double endY() const { return y + side; }
    TileSquare quarter(unsigned child) const {
        const double half = side / 2.0;
        return {x + (child & 1U ? half : 0.0), y + (child & 2U ? half : 0.0), half};
    }
    /// The child whose quarter has the position.
    unsigned childAt(double px, double py) const {
        return (px >= x + side / 2.0 ? 1U : 0U) + (py >= y + side / 2.0 ? 2U : 0U);
    }
};

inline TileSquare TileSquare::of(const GridTerrainTile & tile) {
    const NBX::SO<GridTerrainTile> parent = tile.parent();
    if (parent) return of(*parent).quarter(parent->childIndex(const_cast<GridTerrainTile *>(&tile)));
    return {0.0, 0.0, std::ldexp(1.0, static_cast<int>(tile.gridLevel()) + tile.level())};
}

} // namespace ZMT::CORE::GRID
