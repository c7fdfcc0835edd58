#include "commands.h"
#include "systemjson.h"

#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "landscape/errors.h"
#include "landscape/streamedfiles.h"
#include "landscape/terraininput.h"

#include <nbx/object/progress.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/raster/bandstatistics.h>
#include <zmt/raster/gdal/coordinatesystem.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/projectionfile.h>
#include <zmt/raster/heightunit.h>
#include <zmt/raster/histogram.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramid.h>
#include <zmt/util/compressedtexture/texturepyramidtiledgeoimage.h>

namespace {

using Json = nlohmann::ordered_json;
using ZMT::RASTER::GeoFile;
using ZMT::RASTER::GeoReference;
using ZMT::UTIL::CompressedTexture;

struct InfoOptions {
    std::string file;
    bool statistics = false;
    bool json = false;
};

/// What is told of a file: lines for people, and an object for programs.
struct Telling {
    std::string lines;
    Json object;

    [[gnu::format(printf, 3, 4)]] void line(const char * label, const char * format, ...) {
        char text[1000];
        std::va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
        char start[40];
        std::snprintf(start, sizeof start, "%-11s ", (std::string(label) + ":").c_str());
        lines += std::string(start) + text + "\n";
    }
};

Telling begin(const std::string & path, const char * kind) {
    Telling telling;
    const std::string name = shownName(path);
    telling.line("file", "%s", name.c_str());
    telling.object["file"] = name;
    telling.object["kind"] = kind;
    return telling;
}

/// Numbers that are none have no place in JSON.
Json numberOrNull(double number) {
    return std::isfinite(number) ? Json(number) : Json();
}

void tellSystem(Telling & telling, const GeoReference & reference) {
    telling.line("system", "%s", ZMT::RASTER::CoordinateSystem::describe(reference).c_str());
    describeSystem(telling.object, reference);
}

Json boxOf(double minX, double minY, double maxX, double maxY) {
    return {{"min_x", minX}, {"min_y", minY}, {"max_x", maxX}, {"max_y", maxY}};
}

void tellEdges(Telling & telling, const ZMT::RASTER::GeoExtent & extent) {
    telling.line("x", "%.10g to %.10g", extent.minX, extent.maxX);
    telling.line("y", "%.10g to %.10g", extent.minY, extent.maxY);
    telling.object["edges"] = boxOf(extent.minX, extent.minY, extent.maxX, extent.maxY);
}

/// Edges are half a cell beyond the centres.
void tellGrid(Telling & telling, const ZMT::RASTER::RasterGrid & grid, const GeoReference & reference,
              const char * cells) {
    const std::string unit = reference.unitName.empty() ? "" : " " + reference.unitName;
    telling.line("size", "%u by %u %ss", grid.cellsX, grid.cellsY, cells);
    telling.line(cells, "%.10g by %.10g%s", grid.cellSizeX, grid.cellSizeY, unit.c_str());
    telling.object["width"] = grid.cellsX;
    telling.object["height"] = grid.cellsY;
    telling.object["cell"] = {grid.cellSizeX, grid.cellSizeY};
    telling.object["unit"] = reference.unitName;
    tellSystem(telling, reference);
    const double endX = grid.minX + (grid.cellsX - 1.0) * grid.cellSizeX;
    const double endY = grid.minY + (grid.cellsY - 1.0) * grid.cellSizeY;
    const double halfX = 0.5 * grid.cellSizeX, halfY = 0.5 * grid.cellSizeY;
    telling.line("x", "%.10g to %.10g, centres of %ss %.10g to %.10g", grid.minX - halfX, endX + halfX, cells,
                 grid.minX, endX);
    telling.line("y", "%.10g to %.10g, centres of %ss %.10g to %.10g", grid.minY - halfY, endY + halfY, cells,
                 grid.minY, endY);
    telling.object["edges"] = boxOf(grid.minX - halfX, grid.minY - halfY, endX + halfX, endY + halfY);
    telling.object["centres"] = boxOf(grid.minX, grid.minY, endX, endY);
}

Json tellStatistics(Telling & telling, const char * values, double minimum, double maximum, double average,
                    double undefinedShare) {
    if (std::isfinite(minimum))
        telling.line(values, "%.10g to %.10g, average %.10g", minimum, maximum, average);
    else
        telling.line(values, "none");
    telling.line("undefined", "%.2f %%", 100.0 * undefinedShare);
    return {{"minimum", numberOrNull(minimum)},
            {"maximum", numberOrNull(maximum)},
            {"average", numberOrNull(average)},
            {"undefined", undefinedShare}};
}

/// Name and stored size of each level.
void tellLevels(Telling & telling, const ZMT::UTIL::TexturePyramid & pyramid) {
    for (unsigned i = 0; i < pyramid.overviews(); ++i) {
        const auto level = pyramid.level(i);
        const auto & header = level->header();
        const auto tiles = static_cast<std::uint64_t>(header.tilesX) * header.tilesY;
        char text[200];
        std::snprintf(text, sizeof text,
                      "level %-5u %u by %u pixels, %" PRIu64 " of %" PRIu64 " tiles of %u by %u, %" PRIu64
                      " bytes\n",
                      i, header.pixelsX, header.pixelsY, level->storedTiles(), tiles, header.tileWidth,
                      header.tileHeight, level->storedBytes());
        telling.lines += text;
        telling.object["levels"].push_back({{"width", header.pixelsX},
                                            {"height", header.pixelsY},
                                            {"stored_tiles", level->storedTiles()},
                                            {"tiles", tiles},
                                            {"bytes", level->storedBytes()}});
    }
}

Telling tellPyramid(const std::string & path, const ZMT::UTIL::TexturePyramid & pyramid) {
    const auto finest = pyramid.level(0);
    Telling telling = begin(path, "texture pyramid");
    const char * format = CompressedTexture::formatName(finest->pixelFormat());
    const bool isDeflated = finest->header().compression == CompressedTexture::C_Deflate;
    telling.line("format", "texture pyramid, %s%s", format, isDeflated ? ", deflated" : "");
    telling.object["format"] = format;
    telling.object["deflated"] = isDeflated;
    telling.line("pixel", "%.10g by %.10g", finest->pixelSizeX(), finest->pixelSizeY());
    telling.object["cell"] = {finest->pixelSizeX(), finest->pixelSizeY()};
    tellSystem(telling, ZMT::RASTER::ProjectionFile::read(path));
    tellEdges(telling, {pyramid.minX(), pyramid.minY(), pyramid.maxX(), pyramid.maxY()});
    tellLevels(telling, pyramid);
    return telling;
}

unsigned countPatches(const ZMT::CORE::GeometryPatch & patch) {
    unsigned count = 1;
    for (unsigned i = 0; i < patch.children(); ++i)
        count += countPatches(*patch.child(i));
    return count;
}

/// All heights are in memory anyway.
Telling tellBuilt(const std::string & path) {
    const auto built = readBuiltTerrain(path);
    const ZMT::RASTER::RasterData & raster = *built->grid()->rasterData();
    const unsigned patches = countPatches(*built->terrain()->root());
    Telling telling = begin(path, "built terrain");
    telling.line("format", "built terrain, %u patches of at most %u vertices, seed %u", patches,
                 built->maxVertices(), built->seed());
    telling.object["patches"] = patches;
    telling.object["max_vertices"] = built->maxVertices();
    telling.object["seed"] = built->seed();
    tellGrid(telling, raster.grid(), built->reference(), "cell");
    const ZMT::RASTER::Histogram histogram(&raster);
    const auto undefined = static_cast<double>(histogram.numberOfUndefinedValues());
    telling.object["heights"] =
        tellStatistics(telling, "heights", histogram.minimum(), histogram.maximum(), histogram.average(),
                       undefined / (undefined + static_cast<double>(histogram.numberOfDefinedValues())));
    return telling;
}

Telling tellStreamedTerrain(const std::string & locator) {
    using ZMT::CORE::GRID::AsyncGridTerrain;
    const StreamedTerrain opened = openStreamedTerrain(locator);
    const AsyncGridTerrain & terrain = *opened.terrain;
    const std::uint64_t side = (1U << terrain.gridLevel()) + 1;
    const auto [cellX, cellY] = terrain.getCellSize();
    const NBX::Bounds box = terrain.geoBoundingBox(), cells = terrain.gridBoundingBox();
    const std::string unit = opened.reference.unitName.empty() ? "" : " " + opened.reference.unitName;
    const char * light = opened.lightMapKind == AsyncGridTerrain::LM_None    ? "none"
                         : opened.lightMapKind == AsyncGridTerrain::LM_Light ? "baked"
                                                                             : "normals";
    const int levels = terrain.rootTile()->level() + 1;
    const double low = terrain.lowestPoint().y, high = terrain.highestPoint().y;
    Telling telling = begin(locator, "streaming terrain");
    telling.line("format",
                 "streaming terrain, %" PRIu64 " bytes, tiles of %" PRIu64 " by %" PRIu64
                 " heights in %d levels",
                 terrain.file()->size(), side, side, levels);
    telling.line("light", "%s", light);
    telling.line("size", "%.0f by %.0f cells", cells.getURB().x, cells.getURB().y);
    telling.line("cell", "%.10g by %.10g%s", cellX, cellY, unit.c_str());
    telling.object.update({{"bytes", terrain.file()->size()},
                           {"tile_side", side},
                           {"levels", levels},
                           {"light", light},
                           {"width", cells.getURB().x},
                           {"height", cells.getURB().y},
                           {"cell", {cellX, cellY}},
                           {"unit", opened.reference.unitName}});
    tellSystem(telling, opened.reference);
    tellEdges(telling, {box.getLLF().x, box.getLLF().z, box.getURB().x, box.getURB().z});
    telling.line("heights", "%.10g to %.10g", low, high);
    telling.object["heights"] = {{"minimum", numberOrNull(low)}, {"maximum", numberOrNull(high)}};
    return telling;
}

Telling tellStreamedTexture(const std::string & locator) {
    const NBX::Bounds box = openStreamedTexture(locator, 0).texture->boundingBox();
    Telling telling = begin(locator, "streaming texture");
    telling.line("format", "streaming texture");
    tellEdges(telling, {box.getLLF().x, box.getLLF().z, box.getURB().x, box.getURB().z});
    return telling;
}

/// Nothing for metres, which everything else becomes when a terrain is made.
void tellHeightUnit(Telling & telling, const std::string & name) {
    const auto metres = ZMT::RASTER::HeightUnit::metres(name);
    if (!metres)
        telling.line("unit", "%s, which is not known; terrains take it for metres", name.c_str());
    else if (*metres != 1.0)
        telling.line("unit", "%s, %.10g metres; heights of terrains are metres", name.c_str(), *metres);
}

void tellBand(Telling & telling, const ZMT::RASTER::RasterFile & file, unsigned index, const char * values,
              bool statistics) {
    const auto band = file.describe(index);
    std::string text = band.type;
    for (const std::string & part : {band.meaning, band.unit})
        text += part.empty() ? "" : ", " + part;
    char noData[40] = "";
    if (band.noData) std::snprintf(noData, sizeof noData, ", no data is %.10g", *band.noData);
    telling.line(("band " + std::to_string(index + 1)).c_str(), "%s%s", text.c_str(), noData);
    Json object = {{"type", band.type}, {"meaning", band.meaning}, {"unit", band.unit}};
    object["no_data"] = band.noData ? numberOrNull(*band.noData) : Json();
    if (statistics) {
        NBX::Progress reading("reading band " + std::to_string(index + 1));
        const auto found = ZMT::RASTER::BandStatistics::of(*file.band(index), &reading);
        if (!found.isComplete) throw DataError("cancelled");
        reading.finish();
        const auto undefined = static_cast<double>(found.undefined);
        object.update(tellStatistics(telling, values, found.minimum, found.maximum, found.average,
                                     undefined / (undefined + static_cast<double>(found.defined))));
    }
    telling.object["bands"].push_back(object);
}

Telling tellRaster(const InfoOptions & options) {
    const auto file = GeoFile::openHeights(options.file);
    const bool isImage = GeoFile::kindOf(options.file) == ZMT::RASTER::GeoFileKind::Image;
    Telling telling = begin(options.file, isImage ? "image" : "heights");
    telling.line("format", "%s, bands: %u", file->format().c_str(), file->bands());
    telling.object["format"] = file->format();
    tellGrid(telling, file->grid(), file->reference(), isImage ? "pixel" : "cell");
    for (unsigned i = 0; i < file->bands(); ++i)
        tellBand(telling, *file, i, isImage ? "values" : "heights", options.statistics);
    if (!isImage) tellHeightUnit(telling, file->heightUnit());
    return telling;
}

Telling tellVectors(const std::string & path) {
    const auto file = GeoFile::openVectors(path);
    Telling telling = begin(path, "vectors");
    telling.line("format", "%s, lines or areas, layers: %u", file->format().c_str(), file->layers());
    telling.object["format"] = file->format();
    telling.object["layers"] = file->layers();
    tellSystem(telling, file->reference());
    return telling;
}

Telling tell(const InfoOptions & options) {
    const std::string & path = options.file;
    if (isStreamedTerrain(path)) return tellStreamedTerrain(path);
    if (isStreamingTextureFile(path)) return tellStreamedTexture(path);
    if (isBuiltTerrain(path)) return tellBuilt(path);
    if (GeoFile::formatOf(path)) {
        const auto image = GeoFile::openImage(path);
        if (const auto * pyramid = dynamic_cast<const ZMT::UTIL::TexturePyramid *>(image.get()))
            return tellPyramid(path, *pyramid);
    }
    if (GeoFile::kindOf(path) == ZMT::RASTER::GeoFileKind::Vectors) return tellVectors(path);
    return tellRaster(options);
}

void printInfo(const InfoOptions & options) {
    const Telling telling = tell(options);
    if (!options.json) {
        std::fputs(telling.lines.c_str(), stdout);
        return;
    }
    // Names of files may be of any bytes.
    std::printf("%s\n", telling.object.dump(1, ' ', false, Json::error_handler_t::replace).c_str());
}

} // namespace

void addInfoCommand(CLI::App & app) {
    auto * command = app.add_subcommand("info", "Tells what a raster, a built or streaming terrain, a "
                                                "texture pyramid, a streaming texture or a file of "
                                                "lines and areas holds.");
    const auto options = std::make_shared<InfoOptions>();
    command->add_option("FILE", options->file, "The file; of a streaming terrain also its URL")->required();
    command->add_flag(
        "--statistics", options->statistics,
        "Read all numbers of a raster, of whatever size, and tell their range and average, and how "
        "many are undefined");
    command->add_flag("--json", options->json, "Write an object in the place of lines");
    command->callback([options] { printInfo(*options); });
}
