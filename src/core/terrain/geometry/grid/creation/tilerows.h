#pragma once

#include <cstdint>
#include <vector>

#include "core/terrain/geometry/grid/model/terrainfileformat.h"
#include "heightsource.h"

namespace ZMT::CORE::GRID {

/// The tiles of a terrain that may have heights, row by row, and the order in which they stand in the file:
/// after a row of the finest tiles follow the rows of their parents, grandparents and so on whose last
/// children it has. So little is kept while they are written, and children stand in front of their parents.
class TileRows {
public:
    /// At most so many tiles side by side are under way.
    static constexpr std::uint32_t s_tilesAtOnce = 256;

    /// From `first` to `last`.
    struct Range {
        std::uint32_t first = 0, last = 0;

        std::uint32_t count() const { return last - first + 1; }
        bool contains(std::uint32_t i) const { return i >= first && i <= last; }
        /// Those from `begin` on that are under way at once.
        std::uint32_t piece(std::uint32_t begin) const {
            return last - begin < s_tilesAtOnce ? last - begin + 1 : s_tilesAtOnce;
        }
    };

    /// `area`: the points where heights may be.
    TileRows(std::uint32_t tileLevel, std::uint32_t treeDepth, const LatticeArea & area);

    std::uint32_t tileLevel() const { return tileLevel_; }
    std::uint32_t treeDepth() const { return static_cast<std::uint32_t>(depths_.size()) - 1; }
    const Range & columns(std::uint32_t depth) const { return depths_[depth].columns; }
    const Range & rows(std::uint32_t depth) const { return depths_[depth].rows; }
    TerrainFileFormat::TilePlace place(std::uint32_t depth, std::uint32_t column, std::uint32_t row) const {
        return {tileLevel_, depth, column << tileLevel_, row << tileLevel_};
    }
    /// The coarsest depth of which a row ends with this row of the finest tiles.
    std::uint32_t endingDepth(std::uint32_t row) const;

private:
    struct Depth {
        Range columns, rows;
    };

    std::uint32_t tileLevel_;
    std::vector<Depth> depths_;
};

} // namespace ZMT::CORE::GRID
