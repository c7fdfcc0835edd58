#pragma once

#include <cstdint>
#include <vector>

#include "core/terrain/geometry/grid/model/terrainfileformat.h"
#include "heightsource.h"

namespace ZMT::CORE::GRID {

/// Heights as numbers from 1 to 65535.
struct HeightScale {
    double minHeight, step;

    /// Of a range of heights, which may have no extent.
    static HeightScale ofRange(double minHeight, double maxHeight);
    /// 0 for NaN.
    std::uint16_t quantised(double height) const;
    double height(std::uint16_t value) const { return minHeight + (value - 1.0) * step; }
};

/// Rows of a level of the lattice, in the width of an area.
struct LatticeRows {
    const float * heights = nullptr;
    LatticeArea area; ///< of the rows themselves
};

/// A tile that is being made. Its block lies in it as it will be stored.
struct TileSamples {
    TerrainFileFormat::TilePlace place;
    std::vector<std::uint16_t> block; ///< empty where nothing is defined
    TerrainFileFormat::GridBox box{}; ///< of the defined samples, one sample wider in the plane
    bool hasData = false;             ///< more than a part of the parent

    bool isDefined() const { return !block.empty(); }
    /// Row by row, followed by the tables of the borders.
    std::uint16_t * values() { return block.data() + sizeof(TerrainFileFormat::TileHeader) / 2; }
    const std::uint16_t * values() const { return block.data() + sizeof(TerrainFileFormat::TileHeader) / 2; }

    /// The tile at `place` with its samples out of `rows`, and 0 beside them.
    static TileSamples quantised(const TerrainFileFormat::TilePlace & place, const LatticeRows & rows,
                                 const HeightScale & scale);
    /// Fills row `k` of the four border tables with what `ancestor`, `k` levels above, has there.
    void setBorders(std::uint32_t k, const TileSamples & ancestor);
    /// Finds the box; a tile without a defined sample loses its block.
    void findBox();
};

} // namespace ZMT::CORE::GRID
