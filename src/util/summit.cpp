#include <zmt/util/summit.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::UTIL {

namespace {

using CORE::GridData;
using Point = NBX::Vector3Base<double>;

/// A part of the grid.
struct Block {
    Point summit{0.0, -HUGE_VAL, 0.0};
    std::size_t unknown = 0; ///< undefined heights
};
using Blocks = std::vector<Block>; ///< row by row

Block measureBlock(const GridData & grid, unsigned i, unsigned j) {
    const auto column = [&](unsigned block) {
        return unsigned(std::uint64_t(block) * grid.sizeX() / Summit::s_blocks);
    };
    const auto row = [&](unsigned block) {
        return unsigned(std::uint64_t(block) * grid.sizeY() / Summit::s_blocks);
    };
    Block result;
    for (unsigned y = row(j); y < row(j + 1); ++y)
        for (unsigned x = column(i); x < column(i + 1); ++x) {
            const Point p = grid.vertex(x, y);
            result.unknown += grid.isUndefinedHeightValue(p.y);
            if (p.y > result.summit.y) result.summit = p;
        }
    return result;
}

Blocks measureBlocks(const GridData & grid) {
    Blocks blocks;
    for (unsigned j = 0; j < Summit::s_blocks; ++j)
        for (unsigned i = 0; i < Summit::s_blocks; ++i)
            blocks.push_back(measureBlock(grid, i, j));
    return blocks;
}

std::size_t unknownAround(const Blocks & blocks, unsigned i, unsigned j) {
    std::size_t sum = 0;
    for (unsigned y = j - 1; y <= j + 1; ++y)
        for (unsigned x = i - 1; x <= i + 1; ++x)
            sum += blocks[y * Summit::s_blocks + x].unknown;
    return sum;
}

} // namespace

std::optional<Point> Summit::find(const GridData & grid, const NBX::Bounds & plan) {
    const Blocks blocks = measureBlocks(grid);
    std::optional<Point> summit;
    std::size_t fewest = SIZE_MAX;
    for (unsigned j = 1; j + 1 < s_blocks; ++j)
        for (unsigned i = 1; i + 1 < s_blocks; ++i) {
            const Point & top = blocks[j * s_blocks + i].summit;
            if (!std::isfinite(top.y)) continue;
            if (plan.isDefined() && !plan.containsPointInPlane(top, 0, 2)) continue;
            const std::size_t unknown = unknownAround(blocks, i, j);
            if (unknown > fewest || (unknown == fewest && summit && top.y <= summit->y)) continue;
            summit = top;
            fewest = unknown;
        }
    return summit;
}

} // namespace ZMT::UTIL
