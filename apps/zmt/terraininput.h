#pragma once

#include <cstdint>
#include <string>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
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

/// Adds the option "--fill-voids" to `command`.
void addVoidOption(CLI::App & command, bool & fillVoids);

/// Adds the option "--threads" to `command`. `threads` becomes the number of cores.
void addThreadsOption(CLI::App & command, unsigned & threads);
/// Throws `UsageError` for a number that no machine has.
void checkThreads(unsigned threads);

/// Reads a height raster for a terrain. Unless told otherwise, one that is not in metres is warped to a
/// system that is. Throws `DataError`, or what the raster layer throws, when it cannot be a terrain.
ZMT::RASTER::GeoRaster readTerrainRaster(const std::string & path, const TerrainReading & how = {});

/// Wraps a raster, and makes its origin the one of the scene, so that patches lie in scene coordinates.
NBX::SO<ZMT::CORE::GridData> makeGrid(const ZMT::RASTER::GeoRaster & raster);

/// Builds the tree of levels of detail; it is the same for any number of threads. Throws `DataError` when the
/// user cancels. `milliseconds` is the time that it took.
NBX::SO<ZMT::CORE::GeometryPatch> buildTree(const NBX::SO<ZMT::CORE::GridData> & grid, unsigned maxVertices,
                                            unsigned threads, double & milliseconds);

/// The terrain over `grid`, by "tree" or "chunked". Otherwise like `buildTree`.
NBX::SO<ZMT::CORE::Terrain> buildTerrain(const NBX::SO<ZMT::CORE::GridData> & grid,
                                         const std::string & method, unsigned maxVertices, unsigned threads,
                                         double & milliseconds);

/// Throws `UsageError` when a tree cannot be built with this budget.
void checkMaxVertices(unsigned maxVertices);

/// Throws `UsageError` for a factor of the heights that nothing can be drawn with.
void checkExaggeration(double exaggeration);

/// The largest amount of memory that the program has used so far.
std::uint64_t peakResidentBytes();
