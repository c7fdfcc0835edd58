#include "tilerows.h"

#include <algorithm>

namespace ZMT::CORE::GRID {

namespace {

/// The tiles of 2^`level` cells that have a point from `low` to `high`, of `count` tiles.
TileRows::Range tilesOver(std::uint32_t low, std::uint32_t high, std::uint32_t level, std::uint32_t count) {
    const std::uint32_t cells = 1U << level;
    // A point between two tiles belongs to both.
    const std::uint32_t first = low == 0 ? 0 : (low - 1) >> level;
    return {first, std::min(high / cells, count - 1)};
}

} // namespace

TileRows::TileRows(std::uint32_t tileLevel, std::uint32_t treeDepth, const LatticeArea & area)
    : tileLevel_(tileLevel), depths_(treeDepth + 1) {
    const std::uint32_t tiles = 1U << treeDepth;
    const Range columns = tilesOver(area.minX, area.maxX, tileLevel, tiles);
    const Range rows = tilesOver(area.minY, area.maxY, tileLevel, tiles);
    for (std::uint32_t d = 0; d <= treeDepth; ++d)
        depths_[d] = {{columns.first >> d, columns.last >> d}, {rows.first >> d, rows.last >> d}};
}

std::uint32_t TileRows::endingDepth(std::uint32_t row) const {
    std::uint32_t depth = 0;
    while (depth < treeDepth() && (row % 2 == 1 || row == depths_[depth].rows.last)) {
        row /= 2;
        ++depth;
    }
    return depth;
}

} // namespace ZMT::CORE::GRID
