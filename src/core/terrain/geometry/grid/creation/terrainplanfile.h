#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nbx/data/file.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/creation/heightresampling.h>

#include "core/terrain/geometry/grid/model/terrainfileformat.h"
#include "heightlevels.h"
#include "tilerows.h"
#include "tilesamples.h"

namespace ZMT::CORE::GRID {

/// What all who write a terrain in parts know of it: the file of a plan holds this, and behind it the heights
/// of all coarser levels.
struct TerrainPlanFile {
    /// With a scale of heights, but without size and root.
    TerrainFileFormat::FileHeader header = TerrainFileFormat::FileHeader::blank();
    std::uint32_t sourceDepth = 0;
    LatticeArea sourceArea, area; ///< of the raster, and with the old terrain

    HeightResampling resampling = HeightResampling::Nearest;
    bool createsShading = false, storesNormals = false;
    double ambientLight = 0.0, light[3] = {};
    bool hasWkt = false;
    std::string wkt;

    std::vector<std::string> rasters;
    std::string oldTerrain, system;
    /// Numbers that tell options, and rasters with the old terrain, apart.
    std::uint64_t options = 0, origin = 0;

    /// How much is to be done for each row of the finest tiles.
    std::vector<std::uint64_t> work;

    TileRows rows() const { return {header.tileLevel, header.treeDepth, area}; }
    HeightScale scale() const { return {header.minHeight, header.heightScale}; }
    /// Tells plans apart.
    std::uint64_t id() const;
    /// The first of the rows that share `part` of `parts`, 1 to `parts`, has; that of the share behind ends
    /// it. Shares have about the same work, in whole rows; some may have none.
    std::uint32_t firstRowOf(std::uint32_t part, std::uint32_t parts) const;

    /// Where the levels will begin: known without the numbers, but not without the texts.
    std::uint64_t levelsStart() const;
    /// To the beginning of the file. Throws `NBX::IOException`.
    void write(NBX::File & file) const;
    /// Whether `start`, the first 8 bytes of a file, are those of a plan.
    static bool isMagic(const char * start);
    /// Throws `NBX::InputException` for what is no plan, damaged or cut off.
    static TerrainPlanFile read(NBX::File & file);
    /// Those of a file that was read.
    HeightLevels levels(const NBX::SO<NBX::File> & file) const;

private:
    std::vector<char> description() const;
    void takeDescription(const std::vector<char> & bytes);
    bool isSound() const;
};

} // namespace ZMT::CORE::GRID
