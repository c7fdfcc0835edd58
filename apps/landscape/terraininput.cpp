// From a file to heights in memory: the kind of the file, then its system and unit, its size, its range; each
// is refused or told before the long work that it would spoil.

#include "terraininput.h"

#include "errors.h"
#include "program/stage.h"
#include "reports.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <nbx/data/objectloader.h>
#include <nbx/io/modelfile.h>
#include <nbx/object/exception.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/progress.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/raster/gdal/coordinatesystem.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/rastervoids.h>
#include <zmt/raster/gdal/rasterwarp.h>
#include <zmt/raster/heightunit.h>

using ZMT::CORE::BuiltTerrain;

namespace {

bool hasHeights(const ZMT::RASTER::RasterData & raster) {
    std::vector<double> row(raster.cellsX());
    for (unsigned y = 0; y < raster.cellsY(); ++y) {
        raster.valueRow(y, row.data());
        for (const double height : row)
            if (!raster.isUndefValue(height)) return true;
    }
    return false;
}

void checkTerrain(const ZMT::RASTER::RasterData & raster, const std::string & path) {
    if (raster.cellsX() < 2 || raster.cellsY() < 2)
        throw DataError(path + ": has " + std::to_string(raster.cellsX()) + " by " +
                        std::to_string(raster.cellsY()) +
                        " cells, a terrain needs at least 2 by 2; give a larger raster");
    if (!hasHeights(raster)) throw DataError(path + ": has no defined height; check its no-data value");
}

/// The whole raster is to be in memory.
void checkSize(const ZMT::RASTER::RasterFile & file, const std::string & path) {
    constexpr std::uint64_t most = ZMT::RASTER::RasterFile::defaultMaxCells;
    const ZMT::RASTER::RasterGrid & grid = file.grid();
    if (grid.cellsY <= most / grid.cellsX) return;
    throw DataError(path + ": the raster is too large: " + std::to_string(grid.cellsX) + " x " +
                    std::to_string(grid.cellsY) + " cells, of which at most " + std::to_string(most) +
                    " fit into memory; make a streaming terrain of it with 'zmt build terrain', or cut out "
                    "a part with gdal_translate");
}

/// Heights of terrains are metres, as their plan is.
void toMetres(ZMT::RASTER::SimpleRasterData<float> & heights, const std::string & unit) {
    const double metres = ZMT::RASTER::HeightUnit::metres(unit).value_or(1.0);
    if (metres != 1.0) ZMT::RASTER::HeightUnit::scale(heights, metres);
}

void tellAbsurdHeightsOf(const ZMT::RASTER::RasterData & raster, const std::string & path) {
    double low = 0.0, high = 0.0;
    std::vector<double> row(raster.cellsX());
    for (unsigned y = 0; y < raster.cellsY(); ++y) {
        raster.valueRow(y, row.data());
        for (const double height : row) {
            if (raster.isUndefValue(height)) continue;
            low = std::min(low, height);
            high = std::max(high, height);
        }
    }
    tellAbsurdHeights(low, high, path);
}

double unknownShare(const ZMT::RASTER::RasterData & raster) {
    std::vector<double> row(raster.cellsX());
    double unknown = 0.0;
    for (unsigned y = 0; y < raster.cellsY(); ++y) {
        raster.valueRow(y, row.data());
        unknown += double(std::count_if(row.begin(), row.end(),
                                        [&](double height) { return raster.isUndefValue(height); }));
    }
    return unknown / (double(raster.cellsX()) * raster.cellsY());
}

/// A way out for a raster in degrees, whose sides are straight in every cylindrical system: the one that is
/// true to scale in its middle. For others there is none.
std::string cylindricalSystemFor(const ZMT::RASTER::GeoRaster & raster) {
    if (!raster.reference.isGeographic) return "another system by --crs";
    constexpr double nearestToPole = 89.0; // there all is one point
    const double longitude = (raster.raster->minX() + raster.raster->maxX()) * 0.5;
    const double latitude = (raster.raster->minY() + raster.raster->maxY()) * 0.5;
    char text[160];
    std::snprintf(text, sizeof text,
                  "a system where they are: --crs \"+proj=eqc +lat_ts=%.3g +lon_0=%.4g +datum=WGS84\"",
                  std::clamp(latitude, -nearestToPole, nearestToPole), longitude);
    return text;
}

/// Beside a raster in degrees that is near a pole, or turned, its new system has room without heights.
void tellWedges(double share, const ZMT::RASTER::GeoReference & system, const std::string & wayOut,
                const std::string & path) {
    constexpr double mostShare = 0.1;
    if (share <= mostShare) return;
    writeError("warning: " + path + ": its sides are not straight in " + system.name + ", so that " +
               std::to_string(std::lround(share * 100.0)) + " % of the terrain have no heights; choose " +
               wayOut);
}

/// In the system `crs`, or without one in any that is in metres.
ZMT::RASTER::GeoRaster inMetres(ZMT::RASTER::GeoRaster raster, const std::string & crs,
                                const std::string & path) {
    using ZMT::RASTER::RasterWarp;
    if (crs.empty() && !RasterWarp::isNeeded(raster.reference)) return raster;
    if (!crs.empty() && !raster.reference.isGeoreferenced)
        throw DataError(path + ": has no place on the map, so that --crs means nothing; leave it out");
    if (!crs.empty() && raster.reference.wkt.empty()) {
        writeError("warning: " + path +
                   ": has no coordinate system; its coordinates are taken to be those of --crs");
        raster.reference = ZMT::RASTER::CoordinateSystem::parse(crs);
        return raster;
    }
    const double unknownBefore = unknownShare(*raster.raster);
    const std::string wayOut = cylindricalSystemFor(raster);
    const Stage stage(L"warp");
    NBX::Progress warping(crs.empty() ? "warping to metres" : "warping to the system of --crs");
    raster =
        crs.empty() ? RasterWarp::toMetric(raster, &warping) : RasterWarp::toSystem(raster, crs, &warping);
    if (!raster.raster) throw DataError("cancelled");
    warping.finish();
    if (!crs.empty() && !hasHeights(*raster.raster))
        throw DataError(path + ": has no height where --crs has coordinates; choose a system for its area");
    checkTerrain(*raster.raster, path);
    if (crs.empty()) tellWedges(unknownShare(*raster.raster) - unknownBefore, raster.reference, wayOut, path);
    return raster;
}

} // namespace

void tellWhatIsTaken(unsigned bands, const std::string & heightUnit, const std::string & path) {
    if (bands > 1)
        writeError("warning: " + path + ": has " + std::to_string(bands) +
                   " bands, of which the first is taken as heights; give another one as a file of its own");
    if (!ZMT::RASTER::HeightUnit::metres(heightUnit))
        writeError("warning: " + path +
                   ": the unit of its heights is not known, and taken for metres: " + heightUnit);
}

void tellAbsurdHeights(double low, double high, const std::string & path) {
    constexpr double most = 30'000.0; // above and below all mountains and trenches of planets
    if (low >= -most && high <= most) return;
    char text[160];
    std::snprintf(text, sizeof text, "has heights of %.6g m; check its no-data value and unit",
                  high > most ? high : low);
    writeError("warning: " + path + ": " + text);
}

void tellAbsurdCells(double sizeX, double sizeY, const ZMT::RASTER::GeoReference & reference,
                     const std::string & path) {
    constexpr double least = 1e-3, most = 1e6;
    const auto isAbsurd = [](double size) { return size < least || size > most; };
    if (!reference.isGeoreferenced || !(isAbsurd(sizeX) || isAbsurd(sizeY))) return;
    char text[160];
    std::snprintf(text, sizeof text, "has cells of %.6g by %.6g m; check its coordinates and their system",
                  sizeX, sizeY);
    writeError("warning: " + path + ": " + text);
}

bool isBuiltTerrain(const std::string & path) {
    return BuiltTerrain::isFile(path);
}

NBX::SO<BuiltTerrain> readBuiltTerrain(const std::string & path) {
    const Stage stage(L"read");
    NBX::Progress reading("reading " + path);
    const auto built =
        NBX::soCast<BuiltTerrain>(NBX::ObjectLoader::readFile(path, BuiltTerrain::ClassNameNBX(), false));
    if (!built)
        throw DataError(path +
                        ": is damaged, or no terrain that was built; build it anew with 'zmt build tree'");
    reading.finish();
    return built;
}

TerrainInput readTerrain(const std::string & path, const TerrainReading & how,
                         const StreamedFiles & streamed) {
    TerrainInput input;
    if (const StreamedTerrain * opened = streamed.terrain(path)) {
        input.streamed = opened->terrain;
        input.grid = opened->overview;
        input.raster = input.grid->rasterData();
        input.reference = opened->reference;
        ZMT::CORE::GeoTransformation::setNBXOrigin(input.grid->origin());
        return input;
    }
    if (isBuiltTerrain(path)) {
        checkBuiltOptions(path, {}, how);
        input.built = readBuiltTerrain(path);
        input.grid = input.built->grid();
        input.raster = input.grid->rasterData();
        input.reference = input.built->reference();
        ZMT::CORE::GeoTransformation::setNBXOrigin(input.grid->origin());
        return input;
    }
    const auto raster = readTerrainRaster(path, how);
    input.raster = raster.raster;
    input.reference = raster.reference;
    input.grid = makeGrid(raster);
    return input;
}

std::unique_ptr<ZMT::RASTER::RasterFile> openHeights(const std::string & path) {
    try {
        return ZMT::RASTER::GeoFile::openHeights(path);
    } catch (const NBX::FileNotFoundException &) {
        throw;
    } catch (const NBX::InputException &) {
        if (!NBX::ModelFile::recognizes(path)) throw;
        throw DataError(path + ": is a model, and no terrain; make a city of it with 'zmt build city'");
    }
}

ZMT::RASTER::GeoRaster readTerrainRaster(const std::string & path, const TerrainReading & how) {
    const Stage stage(L"read");
    NBX::Progress reading("reading " + path);
    const auto file = openHeights(path);
    checkSize(*file, path);
    ZMT::RASTER::GeoRaster raster = file->read(0, &reading);
    if (!raster.raster) throw DataError("cancelled");
    reading.finish();
    tellWhatIsTaken(file->bands(), file->heightUnit(), path);
    checkTerrain(*raster.raster, path);
    toMetres(*raster.raster, file->heightUnit());
    if (how.fillVoids) {
        const Stage inner(L"fill voids");
        NBX::Progress filling("filling voids");
        raster.raster = ZMT::RASTER::RasterVoids::fill(raster.raster, &filling);
        if (!raster.raster) throw DataError("cancelled");
        filling.finish();
    }
    tellAbsurdHeightsOf(*raster.raster, path);
    // Cells may be in degrees.
    if (how.native) return raster;
    raster = inMetres(raster, how.crs, path);
    tellAbsurdCells(raster.raster->cellSizeX(), raster.raster->cellSizeY(), raster.reference, path);
    return raster;
}

NBX::SO<ZMT::CORE::GridData> makeGrid(const ZMT::RASTER::GeoRaster & raster) {
    NBX::SO<ZMT::CORE::GridData> grid(new ZMT::CORE::GridData(raster.raster.get()));
    ZMT::CORE::GeoTransformation::setNBXOrigin(grid->origin());
    return grid;
}

namespace {

/// What libraries print on the standard error stream has no place while it lives, unless it is wanted.
class QuietLibraries {
public:
    QuietLibraries() {
        if (!Reports::isVerbose()) std::cerr.rdbuf(nullptr);
    }
    ~QuietLibraries() { std::cerr.rdbuf(buffer_); }
    QuietLibraries(const QuietLibraries &) = delete;
    QuietLibraries & operator=(const QuietLibraries &) = delete;

private:
    std::streambuf * buffer_ = std::cerr.rdbuf();
};

} // namespace

NBX::SO<ZMT::CORE::GeometryPatch> buildTree(const NBX::SO<ZMT::CORE::GridData> & grid,
                                            const TreeOptions & options, double & milliseconds) {
    const Stage stage(L"build");
    const double start = NBX::NBXTime::now();
    const QuietLibraries quiet;
    auto root = ZMT::CORE::CreateGeometryTree::create(
        grid.get(), options.maxVertices.value_or(TreeOptions::s_maxVertices),
        options.threads.value_or(std::max(1U, std::thread::hardware_concurrency())));
    milliseconds = (NBX::NBXTime::now() - start) * 1000.0;
    if (!root) throw DataError("cancelled");
    return root;
}

bool fitsChunks(const ZMT::CORE::GridData & grid) {
    constexpr unsigned most = ZMT::CORE::ChunkedLodTerrain::s_maxSize;
    return grid.sizeX() <= most && grid.sizeY() <= most;
}

NBX::SO<ZMT::CORE::Terrain> buildChunks(const NBX::SO<ZMT::CORE::GridData> & grid, double & milliseconds) {
    constexpr unsigned most = ZMT::CORE::ChunkedLodTerrain::s_maxSize;
    if (!fitsChunks(*grid))
        throw DataError("chunked terrains have at most " + std::to_string(most) + " by " +
                        std::to_string(most) + " heights; give --method tree or a smaller raster");
    const Stage stage(L"build");
    const double start = NBX::NBXTime::now();
    NBX::SO<ZMT::CORE::Terrain> terrain(new ZMT::CORE::ChunkedLodTerrain(grid.get()));
    milliseconds = (NBX::NBXTime::now() - start) * 1000.0;
    return terrain;
}
