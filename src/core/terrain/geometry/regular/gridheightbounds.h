#pragma once

#include <cstddef>
#include <vector>

namespace ZMT::CORE {

class GridData;

/// The least and the greatest height in blocks of a grid, so that a search can leave out whole regions.
///
/// Level 0 has blocks of `blockCells` by `blockCells` cells; a block of any other level joins up to 2 by 2 of
/// the level below, and the last level has one block. Heights are those of the corners of plain cells, and
/// of the micro-structures in place of others; both bounds are rounded outwards. Takes a 24th of the memory
/// of the grid's heights as `float`, and little more for small grids.
class GridHeightBounds {
public:
    static constexpr unsigned blockCells = 8;

    /// Reads every vertex once or twice. `grid` has a cell at least.
    explicit GridHeightBounds(const GridData & grid);

    /// The bounds of `grid`, made when they are first asked for, and kept while it lives and is not modified.
    /// The result holds until the next call. For one thread.
    static const GridHeightBounds & of(const GridData & grid);

    struct Range {
        float low, high;
    };

    unsigned levels() const { return static_cast<unsigned>(levels_.size()); }
    /// Number of blocks in x and y.
    unsigned sizeX(unsigned level) const { return levels_[level].sizeX; }
    unsigned sizeY(unsigned level) const { return levels_[level].sizeY; }
    /// Not range-checked. Infinite for a micro-structure that does not keep to its cell.
    const Range & range(unsigned level, unsigned x, unsigned y) const {
        return levels_[level].ranges[x + std::size_t(y) * levels_[level].sizeX];
    }
    /// What all ranges take.
    std::size_t bytes() const;

private:
    struct Level {
        unsigned sizeX, sizeY;
        std::vector<Range> ranges; ///< row by row
    };

    void joinBlocks();

    std::vector<Level> levels_;
};

} // namespace ZMT::CORE
