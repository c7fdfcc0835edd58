#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/view/builtterrain.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/georaster.h>

namespace CLI {
class App;
}

/// What is done to a height raster when it is read.
struct TerrainReading {
    bool native = false;    ///< keep the cells, even where they are degrees
    bool fillVoids = false; ///< interpolate where heights are missing
};

/// Adds an option that takes one file each time it is given.
void addFilesOption(CLI::App & command, const char * name, std::vector<std::string> & files,
                    const char * description);
/// Adds the option "--fill-voids" to `command`.
void addVoidOption(CLI::App & command, bool & fillVoids);

/// How a tree is built, as far as it was told.
struct TreeOptions {
    static constexpr unsigned s_maxVertices = 4000;

    std::optional<unsigned> maxVertices; ///< of a node; without it the number above
    std::optional<unsigned> threads;     ///< without it one for each core
};

/// Adds the options "--max-vertices" and "--threads" to `command`.
void addTreeOptions(CLI::App & command, TreeOptions & options);
/// Throws `UsageError` when a tree cannot be built so.
void checkTreeOptions(const TreeOptions & options);

/// Reads a height raster for a terrain. Unless told otherwise, one that is not in metres is warped to a
/// system that is. Throws `DataError`, or what the raster layer throws, when it cannot be a terrain.
ZMT::RASTER::GeoRaster readTerrainRaster(const std::string & path, const TerrainReading & how = {});

/// The heights of a terrain, with its tree where the file has one.
struct TerrainInput {
    NBX::SO<ZMT::CORE::GridData> grid;
    /// Where there is no height; a flat grid with a hole counts as one of unknown heights.
    NBX::SO<const ZMT::RASTER::RasterData> raster;
    ZMT::RASTER::GeoReference reference;
    NBX::SO<ZMT::CORE::BuiltTerrain> built; ///< null for a raster
};

/// Whether the file was written by "build tree", as far as its first bytes tell.
bool isBuiltTerrain(const std::string & path);
/// Reads such a file. Throws `DataError` for one that is damaged or holds something else.
NBX::SO<ZMT::CORE::BuiltTerrain> readBuiltTerrain(const std::string & path);
/// Throws `UsageError` for options of the building, when it is done.
void checkBuiltOptions(const std::string & path, const TreeOptions & options, const TerrainReading & how);

/// What is said of an option of the building.
std::string notForBuilt(const std::string & option, const std::string & path);

/// Reads a height raster or a built terrain, and makes its origin the one of the scene. Throws as above.
TerrainInput readTerrain(const std::string & path, const TerrainReading & how = {});

/// Wraps a raster, and makes its origin the one of the scene, so that patches lie in scene coordinates.
NBX::SO<ZMT::CORE::GridData> makeGrid(const ZMT::RASTER::GeoRaster & raster);

/// Builds the tree of levels of detail. Throws `DataError` when the user cancels. `milliseconds` is the time
/// that it took.
NBX::SO<ZMT::CORE::GeometryPatch> buildTree(const NBX::SO<ZMT::CORE::GridData> & grid,
                                            const TreeOptions & options, double & milliseconds);

/// Whether chunks can cover the grid.
bool fitsChunks(const ZMT::CORE::GridData & grid);
/// The chunked terrain over `grid`. Otherwise like `buildTree`.
NBX::SO<ZMT::CORE::Terrain> buildChunks(const NBX::SO<ZMT::CORE::GridData> & grid, double & milliseconds);

/// Throws `UsageError` for a factor of the heights that nothing can be drawn with.
void checkExaggeration(double exaggeration);

/// The largest amount of memory that the program has used so far.
std::uint64_t peakResidentBytes();
