// Each kind of file tells its own; a telling is made of lines for people and of an object for programs
// together, so that neither knows what the other does not.

#include "commands.h"
#include "systemjson.h"

#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/streamedfiles.h"
#include "landscape/terraininput.h"
#include "modeloptions.h"
#include "program/stage.h"

#include <nbx/data/objectloader.h>
#include <nbx/data/objectstreamreader.h>
#include <nbx/io/modelfile.h>
#include <nbx/io/modelplacement.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/gridterrainplan.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/core/texturedtriangles/citymodels.h>
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
using ZMT::CORE::AsyncFile;
using ZMT::CORE::CityModels;
using ZMT::CORE::GRID::GridTerrainPlan;
using ZMT::RASTER::GeoFile;
using ZMT::RASTER::GeoReference;
using ZMT::UTIL::CompressedTexture;

struct InfoOptions {
    std::string file;
    std::uint64_t key = 0;
    bool statistics = false;
    bool json = false;
    NBX::ModelOptions model;
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
        lines += start + oneLine(text) + "\n";
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
Telling tellBuilt(const std::string & path, const ZMT::CORE::BuiltTerrain & built) {
    const ZMT::RASTER::RasterData & raster = *built.grid()->rasterData();
    const unsigned patches = countPatches(*built.terrain()->root());
    Telling telling = begin(path, "built terrain");
    telling.line("format", "built terrain, %u patches of at most %u vertices, seed %u", patches,
                 built.maxVertices(), built.seed());
    telling.object["patches"] = patches;
    telling.object["max_vertices"] = built.maxVertices();
    telling.object["seed"] = built.seed();
    tellGrid(telling, raster.grid(), built.reference(), "cell");
    const ZMT::RASTER::Histogram histogram(&raster);
    const auto undefined = static_cast<double>(histogram.numberOfUndefinedValues());
    telling.object["heights"] =
        tellStatistics(telling, "heights", histogram.minimum(), histogram.maximum(), histogram.average(),
                       undefined / (undefined + static_cast<double>(histogram.numberOfDefinedValues())));
    return telling;
}

const char * nameOf(ZMT::CORE::TexturedTriangleTree::TextureFormat format) {
    constexpr const char * names[] = {"rgba8", "luminance", "rgba5551", "dxt1", "jpeg"};
    return names[format];
}

/// A tree without nodes, textures and triangles is not told.
void tellTree(Telling & telling, const ZMT::CORE::TexturedTriangleTree & tree) {
    const auto bare = tree.getUntexturedGeometry();
    if (!tree.getRenderTree() && tree.getNumberOfLayers() == 0 && (!bare || bare->triangles() == 0)) return;
    const unsigned nodes = tree.getRenderTree() ? tree.getRenderTree()->numberOfNodes() : 0;
    Json object = {{"nodes", nodes}, {"atlas_size", tree.getAtlasSize()}, {"layers", Json::array()}};
    for (int layer = 0; layer < tree.getNumberOfLayers(); ++layer) {
        const std::string file = shownName(NBX::StringUtils::WString2Utf8String(tree.getPagingFile(layer)));
        telling.line("tree", "%u nodes, atlases of %d texels, %s, %s", nodes, tree.getAtlasSize(),
                     nameOf(tree.getLayerFormat(layer)), file.c_str());
        object["layers"].push_back({{"file", file}, {"format", nameOf(tree.getLayerFormat(layer))}});
    }
    if (tree.getNumberOfLayers() == 0) telling.line("tree", "no textures");
    telling.object["trees"].push_back(object);
}

Telling tellCity(const std::string & path, const ZMT::CORE::CityModels & city) {
    Telling telling = begin(path, "city");
    tellSystem(telling, city.reference());
    const NBX::Bounds box = city.boundingBox();
    if (box.isDefined()) {
        const auto low = box.getLLF() + city.origin(), high = box.getURB() + city.origin();
        telling.line("x", "%.10g to %.10g", low.x, high.x);
        telling.line("y", "%.10g to %.10g", low.z, high.z);
        telling.line("height", "%.10g to %.10g m", low.y, high.y);
        telling.object["edges"] = boxOf(low.x, low.z, high.x, high.z);
        telling.object["heights"] = {low.y, high.y};
    }
    telling.object["trees"] = Json::array();
    for (const auto & tree : city.trees())
        tellTree(telling, *tree);
    telling.line("models", "%zu", city.models().size());
    telling.object["models"] = Json::array();
    for (const ZMT::CORE::CityModels::Model & model : city.models()) {
        telling.line("model", "%s of %s at %.10g %.10g, %.10g m, %u triangles", model.name.c_str(),
                     model.source.c_str(), model.place.x, model.place.z, model.place.y, model.triangles);
        telling.object["models"].push_back({{"name", model.name},
                                            {"source", model.source},
                                            {"place", {model.place.x, model.place.z, model.place.y}},
                                            {"triangles", model.triangles}});
    }
    return telling;
}

/// A file of stored objects.
Telling tellStored(const std::string & path) {
    const auto stored = NBX::ObjectLoader::readFile(path, NBX::ID(), false);
    if (const auto city = NBX::soCast<ZMT::CORE::CityModels>(stored)) return tellCity(path, *city);
    if (const auto built = NBX::soCast<ZMT::CORE::BuiltTerrain>(stored)) return tellBuilt(path, *built);
    throw DataError(path + ": is damaged, or neither a terrain nor a city that was built; build it anew");
}

/// Around the samples, not as close as the edges of a raster: the file knows it to the samples of its
/// coarsest tile.
void tellBounds(Telling & telling, const NBX::Bounds & geoBox) {
    const auto low = geoBox.getLLF(), high = geoBox.getURB();
    telling.line("x", "%.10g to %.10g at most", low.x, high.x);
    telling.line("y", "%.10g to %.10g at most", low.z, high.z);
    telling.object["bounds"] = boxOf(low.x, low.z, high.x, high.z);
}

Telling tellStreamedTerrain(const std::string & locator, const NBX::SO<AsyncFile> & file) {
    using ZMT::CORE::GRID::AsyncGridTerrain;
    const StreamedTerrain opened = openStreamedTerrain(locator, file);
    const AsyncGridTerrain & terrain = *opened.terrain;
    const std::uint64_t side = (1U << terrain.gridLevel()) + 1;
    const auto [cellX, cellY] = terrain.getCellSize();
    const NBX::Bounds cells = terrain.gridBoundingBox();
    const std::string unit = opened.reference.unitName.empty() ? "" : " " + opened.reference.unitName;
    const std::string & problem = opened.lightMapProblem;
    if (!problem.empty())
        writeError("warning: " + locator + ": the light map behind the terrain cannot be read: " + problem);
    const char * light = !problem.empty()                                    ? "unreadable"
                         : opened.lightMapKind == AsyncGridTerrain::LM_None  ? "none"
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
    telling.line("size", "%.0f by %.0f cells at most", cells.getURB().x, cells.getURB().y);
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
    tellBounds(telling, terrain.geoBoundingBox());
    telling.line("heights", "%.10g to %.10g", low, high);
    telling.object["heights"] = {{"minimum", numberOrNull(low)}, {"maximum", numberOrNull(high)}};
    return telling;
}

Telling tellStreamedTexture(const InfoOptions & options, const NBX::SO<AsyncFile> & file) {
    const StreamedTexture opened = openStreamedTexture(options.file, options.key, file);
    const NBX::Bounds box = opened.texture->boundingBox();
    Telling telling = begin(options.file, "streaming texture");
    telling.line("format", "streaming texture, %" PRIu64 " bytes%s", file->size(),
                 options.key ? ", written with a key" : "");
    telling.object["bytes"] = file->size();
    telling.object["key"] = options.key != 0;
    tellEdges(telling, {box.getLLF().x, box.getLLF().z, box.getURB().x, box.getURB().z});
    return telling;
}

bool isStoredObject(AsyncFile & file) {
    std::uint64_t start = 0;
    if (file.size() < sizeof start) return false;
    const auto bytes = file.readNow(0, sizeof start);
    return bytes && NBX::ObjectStreamReader::hasMagic(bytes->pointer(), bytes->size());
}

/// What lies at a URL is told by its first bytes alone, whatever its name.
Telling tellStreamed(const InfoOptions & options) {
    const NBX::SO<AsyncFile> file = openStreamedFile(options.file);
    const StreamedKind kind = kindOfStreamed(*file, options.key);
    if (kind == StreamedKind::Terrain) return tellStreamedTerrain(options.file, file);
    if (kind == StreamedKind::Texture) return tellStreamedTexture(options, file);
    if (isStoredObject(*file))
        return tellCity(options.file, *CityModels::read(CityModels::fetch(*file), options.file));
    throw DataError(
        shownName(options.file) +
        ": is neither a streaming terrain, nor a streaming texture, nor a city, or was written with "
        "another --key; get it anew, or give its key");
}

/// Many parts belong to one plan, which a number tells.
void tellPlanNumber(Telling & telling, std::uint64_t id) {
    char text[20];
    std::snprintf(text, sizeof text, "%016" PRIx64, id);
    telling.line("plan", "%s", text);
    telling.object["plan"] = text;
}

Telling tellPlan(const std::string & path) {
    const GridTerrainPlan plan(path);
    Telling telling = begin(path, "plan of a streaming terrain");
    telling.line("format", "plan of a streaming terrain, tiles of %u by %u heights in %u levels",
                 (1U << plan.level()) + 1, (1U << plan.level()) + 1, plan.levels());
    telling.object["tile_side"] = (1U << plan.level()) + 1;
    telling.object["levels"] = plan.levels();
    tellPlanNumber(telling, plan.id());
    telling.object["rasters"] = Json::array();
    for (const std::string & raster : plan.rasters()) {
        telling.line("raster", "%s", shownName(raster).c_str());
        telling.object["rasters"].push_back(shownName(raster));
    }
    if (!plan.oldTerrain().empty()) telling.line("merged", "%s", shownName(plan.oldTerrain()).c_str());
    telling.object["merged"] = plan.oldTerrain().empty() ? Json() : Json(shownName(plan.oldTerrain()));
    tellSystem(telling,
               plan.wkt().empty() ? GeoReference() : ZMT::RASTER::ProjectionFile::parse(plan.wkt(), path));
    return telling;
}

Telling tellPart(const std::string & path) {
    const GridTerrainPlan::Part part = GridTerrainPlan::describePart(path);
    Telling telling = begin(path, "part of a streaming terrain");
    telling.line("format", "part %u of %u of a streaming terrain", part.share.part, part.share.parts);
    telling.object["part"] = part.share.part;
    telling.object["parts"] = part.share.parts;
    tellPlanNumber(telling, part.plan);
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

const char * nameOf(NBX::ModelSource source) {
    return source == NBX::ModelSource::Option ? "option"
           : source == NBX::ModelSource::File ? "file"
                                              : "format";
}

const char * nameOf(NBX::ModelUp up) {
    return up == NBX::ModelUp::X ? "x" : up == NBX::ModelUp::Y ? "y" : "z";
}

void tellAxes(Telling & telling, const NBX::Model & model) {
    const auto said = [](NBX::ModelSource source) {
        return source == NBX::ModelSource::Option ? "as asked for"
               : source == NBX::ModelSource::File ? "as the file says"
                                                  : "the file does not say";
    };
    telling.line("axes", "%s up, %s", nameOf(model.up), said(model.upSource));
    telling.line("unit", "%.10g metres, %s", model.metresPerUnit, said(model.unitSource));
    telling.object["up"] = nameOf(model.up);
    telling.object["up_by"] = nameOf(model.upSource);
    telling.object["metres"] = model.metresPerUnit;
    telling.object["metres_by"] = nameOf(model.unitSource);
}

void tellTextures(Telling & telling, const std::vector<NBX::ModelTexture> & textures) {
    telling.line("textures", "%zu", textures.size());
    telling.object["textures"] = Json::array();
    for (const NBX::ModelTexture & texture : textures) {
        Json object = {{"name", texture.name},
                       {"file", texture.path.empty() ? Json() : Json(shownName(texture.path))}};
        if (texture.failure.empty())
            telling.line("texture", "%s, %d by %d pixels%s", texture.name.c_str(), texture.width,
                         texture.height, texture.path.empty() ? ", in the model" : "");
        else
            telling.line("texture", "%s is left out: %s", texture.name.c_str(), texture.failure.c_str());
        if (texture.failure.empty()) object.update({{"width", texture.width}, {"height", texture.height}});
        object["failure"] = texture.failure.empty() ? Json() : Json(texture.failure);
        telling.object["textures"].push_back(object);
    }
}

void tellLeftOut(Telling & telling, const std::vector<std::string> & lines) {
    telling.object["left_out"] = lines;
    for (const std::string & line : lines)
        telling.line("left out", "%s", line.c_str());
}

/// In metres of the scene: x to the east, y up, z to the north.
void tellModelBox(Telling & telling, const NBX::Bounds & box) {
    telling.object["box"] = Json();
    if (!box.isDefined()) return;
    const auto low = box.getLLF(), high = box.getURB();
    telling.line("east", "%.10g to %.10g m", low.x, high.x);
    telling.line("north", "%.10g to %.10g m", low.z, high.z);
    telling.line("up", "%.10g to %.10g m", low.y, high.y);
    telling.object["box"] = {{"east", {low.x, high.x}}, {"north", {low.z, high.z}}, {"up", {low.y, high.y}}};
}

Telling tellModel(const InfoOptions & options) {
    const NBX::Model model = NBX::ModelFile::read(options.file, options.model);
    Telling telling = begin(options.file, "model");
    telling.line("format", "%s", model.format.c_str());
    telling.object["format"] = model.format;
    tellAxes(telling, model);
    telling.line("meshes", "%u", model.meshes);
    telling.line("triangles", "%" PRIu64 ", vertices: %" PRIu64, model.triangles, model.vertices);
    telling.line("materials", "%u", model.materials);
    telling.object.update({{"meshes", model.meshes},
                           {"triangles", model.triangles},
                           {"vertices", model.vertices},
                           {"materials", model.materials}});
    tellModelBox(telling, model.box);
    tellTextures(telling, model.textures);
    tellLeftOut(telling, model.leftOut);
    return telling;
}

const char * nameOf(NBX::ModelPlacement::AltitudeMode mode) {
    return mode == NBX::ModelPlacement::AM_Absolute           ? "absolute"
           : mode == NBX::ModelPlacement::AM_RelativeToGround ? "relativeToGround"
                                                              : "clampToGround";
}

Telling tellPlacements(const std::string & path, const NBX::ModelPlacements & placements) {
    Telling telling = begin(path, "placements of models");
    telling.line("models", "%zu", placements.models.size());
    telling.object["models"] = Json::array();
    for (const NBX::ModelPlacement & model : placements.models) {
        telling.line("model", "%s, %.9g %.9g, altitude %.9g m %s, heading %.9g, tilt %.9g, roll %.9g",
                     shownName(model.model).c_str(), model.longitude, model.latitude, model.altitude,
                     nameOf(model.altitudeMode), model.heading, model.tilt, model.roll);
        telling.object["models"].push_back({{"file", shownName(model.model)},
                                            {"name", model.name},
                                            {"longitude", model.longitude},
                                            {"latitude", model.latitude},
                                            {"altitude", model.altitude},
                                            {"altitude_mode", nameOf(model.altitudeMode)},
                                            {"heading", model.heading},
                                            {"tilt", model.tilt},
                                            {"roll", model.roll},
                                            {"scale", {model.scale.x, model.scale.y, model.scale.z}}});
    }
    tellLeftOut(telling, placements.leftOut);
    return telling;
}

void refuseModelOptions(const InfoOptions & options) {
    const NBX::ModelOptions & given = options.model;
    if (given.up || given.metresPerUnit || !given.textureFolders.empty())
        throw UsageError("--up, --units and --textures are for models, and " + shownName(options.file) +
                         " is none; leave them out");
}

Telling tell(const InfoOptions & options) {
    const std::string & path = options.file;
    if (!isUrl(path) && NBX::ModelFile::recognizes(path)) return tellModel(options);
    refuseModelOptions(options);
    if (isUrl(path) || isStreamingTerrainFile(path)) return tellStreamed(options);
    // What has its suffix may be damaged, or have another key.
    if (isStreamingTextureFile(path, options.key))
        return tellStreamedTexture(options, openStreamedFile(path));
    if (NBX::PlacementFile::recognizes(path)) {
        const NBX::ModelPlacements placements = NBX::PlacementFile::read(path);
        // Without models it may have lines and areas.
        if (!placements.models.empty() || !placements.leftOut.empty())
            return tellPlacements(path, placements);
    }
    const GridTerrainPlan::Kind kind = GridTerrainPlan::kindOf(path);
    if (kind == GridTerrainPlan::K_Plan) return tellPlan(path);
    if (kind == GridTerrainPlan::K_Part) return tellPart(path);
    if (isBuiltTerrain(path)) return tellStored(path);
    if (GeoFile::formatOf(path)) {
        const auto image = GeoFile::openImage(path);
        if (const auto * pyramid = dynamic_cast<const ZMT::UTIL::TexturePyramid *>(image.get()))
            return tellPyramid(path, *pyramid);
    }
    if (GeoFile::kindOf(path) == ZMT::RASTER::GeoFileKind::Vectors) return tellVectors(path);
    return tellRaster(options);
}

void printInfo(const InfoOptions & options) {
    const Stage stage(L"read");
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
                                                "texture pyramid, a streaming texture, a plan or a part "
                                                "of a terrain, a city, a model, placements of models, or a "
                                                "file of lines and areas holds.");
    const auto options = std::make_shared<InfoOptions>();
    command->add_option("FILE", options->file, "The file; of what streams also its URL")->required();
    addParsedOption(*command, "--key", options->key, parseKey,
                    "Key with which a streaming texture was written")
        ->default_str("0");
    command->add_flag(
        "--statistics", options->statistics,
        "Read all numbers of a raster, of whatever size, and tell their range and average, and how "
        "many are undefined");
    command->add_flag("--json", options->json, "Write an object in the place of lines");
    addRedirectsOption(*command);
    addModelOptions(*command, options->model);
    command->callback([options] { printInfo(*options); });
}
