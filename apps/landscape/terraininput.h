#pragma once

#include <memory>
#include <string>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/view/builtterrain.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/georaster.h>

#include "streamedfiles.h"
#include "terrainoptions.h"

/// `ZMT::RASTER::GeoFile::openHeights`; throws `DataError` for a model, which says what to do with it.
std::unique_ptr<ZMT::RASTER::RasterFile> openHeights(const std::string & path);

/// Reads a height raster for a terrain. Unless told otherwise, one that is not in metres is warped to a
/// system that is, and heights in other units become metres. Throws `DataError`, or what the raster layer
/// throws, when it cannot be a terrain.
ZMT::RASTER::GeoRaster readTerrainRaster(const std::string & path, const TerrainReading & how = {});

// What may be wrong with heights, though they can be a terrain: each tells it in a line.

/// Several bands, of which the first is taken, and a unit that is not known.
void tellWhatIsTaken(unsigned bands, const std::string & heightUnit, const std::string & path);
/// Heights that no landscape has: most often a value for no data that the file does not name, or a wrong
/// unit.
void tellAbsurdHeights(double low, double high, const std::string & path);
/// Cells of a size, in metres, that no landscape has.
void tellAbsurdCells(double sizeX, double sizeY, const ZMT::RASTER::GeoReference & reference,
                     const std::string & path);

/// The heights of a terrain, with its tree where the file has one.
struct TerrainInput {
    NBX::SO<ZMT::CORE::GridData> grid;
    /// Where there is no height; a flat grid with a hole counts as one of unknown heights.
    NBX::SO<const ZMT::RASTER::RasterData> raster;
    ZMT::RASTER::GeoReference reference;
    NBX::SO<ZMT::CORE::BuiltTerrain> built; ///< null for a raster
    /// Null for a raster; the grid then has coarse heights alone.
    NBX::SO<ZMT::CORE::GRID::AsyncGridTerrain> streamed;
};

/// Whether the file was written by "build tree", as far as its first bytes tell.
bool isBuiltTerrain(const std::string & path);
/// Reads such a file. Throws `DataError` for one that is damaged or holds something else.
NBX::SO<ZMT::CORE::BuiltTerrain> readBuiltTerrain(const std::string & path);
/// Reads a height raster or a built terrain, or takes a streaming one that was opened, and makes its origin
/// the one of the scene. Throws as above.
TerrainInput readTerrain(const std::string & path, const TerrainReading & how = {},
                         const StreamedFiles & streamed = {});

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
