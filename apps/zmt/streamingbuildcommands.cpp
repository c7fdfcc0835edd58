// What streams: terrains from height rasters, textures from images.

#include "commands.h"

#include <cstdint>
#include <iomanip>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/groundlayers.h"
#include "landscape/outputfiles.h"
#include "landscape/reports.h"
#include "landscape/streamedfiles.h"

#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/gridterraincreation.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/heightsource.h>
#include <zmt/raster/gdal/projectionfile.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace {

using NBX::StringUtils;
using ZMT::CORE::StreamingTextureOptions;
using ZMT::CORE::GRID::GridTerrainCreation;
using ZMT::RASTER::ProjectionFile;

constexpr unsigned s_mostThreads = 1024;
/// Less of a raster is outside of a terrain by roundings.
constexpr double s_leastShare = 1e-6;

/// One of several words. Throws `UsageError`.
template <class Value>
Value oneOf(const char * option, const std::string & text,
            const std::vector<std::pair<const char *, Value>> & words) {
    std::string names;
    for (const auto & [name, value] : words) {
        if (text == name) return value;
        names += (names.empty() ? "" : ", ") + std::string(name);
    }
    throw UsageError(std::string(option) + " must be one of " + names + ": " + text);
}

void addThreadsOption(CLI::App & command, unsigned & threads) {
    command.add_option("--threads", threads,
                       "Threads that work on it, without it one for each core; the file is the same for any "
                       "number");
}

/// The file behind all that are read. Throws `UsageError` with `usage` where nothing is to be read.
std::string takeLast(std::vector<std::string> & files, const char * usage) {
    if (files.size() < 2) throw UsageError(usage);
    const std::string last = files.back();
    files.pop_back();
    return last;
}

void checkThreads(unsigned threads) {
    if (threads > s_mostThreads)
        throw UsageError("--threads must be from 1 to " + std::to_string(s_mostThreads) + ": " +
                         std::to_string(threads));
}

[[noreturn]] void throwFailure(const std::wstring & problem, const std::string & otherwise) {
    if (NBX::ConsoleProgressDisplay::interrupted()) throw DataError("cancelled");
    throw DataError(problem.empty() ? otherwise : StringUtils::WString2Utf8String(problem));
}

// --- terrains

enum class FileLight { Static, Normals, None };

FileLight parseFileLight(const std::string & text) {
    return oneOf<FileLight>(
        "--lighting", text,
        {{"static", FileLight::Static}, {"normals", FileLight::Normals}, {"none", FileLight::None}});
}

GridTerrainCreation::Resampling parseResampling(const std::string & text) {
    return oneOf<GridTerrainCreation::Resampling>("--resampling", text,
                                                  {{"nearest", GridTerrainCreation::Resampling::Nearest},
                                                   {"average", GridTerrainCreation::Resampling::Average}});
}

struct TerrainOptions {
    std::vector<std::string> rasters;
    std::string out, merge;
    unsigned level = 7;
    unsigned threads = 0;
    GridTerrainCreation::Resampling resampling = GridTerrainCreation().resampling;
    FileLight lighting = FileLight::Static;
    std::optional<Sunlight> light;
};

void checkTerrainOptions(const TerrainOptions & options) {
    if (options.level < 1 || options.level > 7)
        throw UsageError("--level must be from 1 to 7: " + std::to_string(options.level));
    checkThreads(options.threads);
    if (options.light && options.lighting != FileLight::Static)
        throw UsageError("--light is for --lighting static; normals are lit while they are drawn");
    std::vector<NamedFile> inputs;
    for (const std::string & raster : options.rasters)
        inputs.push_back({"RASTER", raster});
    if (!options.merge.empty()) inputs.push_back({"--merge", options.merge});
    checkOutputs(inputs,
                 {{"OUT", options.out}, {"the .prj beside OUT", ProjectionFile::pathFor(options.out)}});
}

/// What of the rasters the old terrain has no room for.
void tellShareOutside(const TerrainOptions & options, const ZMT::RASTER::RasterGrid & grid,
                      const ZMT::CORE::GRID::GridTerrain & old) {
    const double share = GridTerrainCreation::shareOutside(grid, old);
    if (share < s_leastShare || share >= 1.0) return;
    std::ostringstream percent;
    percent << std::setprecision(2) << 100.0 * share;
    writeError("warning: " + options.rasters.front() + ": " + percent.str() +
               " % lie outside of the square of " + options.merge +
               " and are left out; to have all of it, make a new terrain of both");
}

/// Where there is no coordinate system to go by.
void tellMissingSystem(const TerrainOptions & options, const std::string & system,
                       const std::string & oldSystem) {
    const std::string & raster = options.rasters.front();
    if (!oldSystem.empty() && system.empty())
        writeError("warning: " + raster + ": has no coordinate system; it is taken to be in that of " +
                   options.merge);
    else if (!options.merge.empty() && oldSystem.empty() && !system.empty())
        writeError("warning: " + options.merge + ": has no coordinate system; " + raster +
                   " will be laid by its coordinates alone");
    else if (system.empty())
        writeError("warning: " + raster +
                   ": has no coordinate system; images will be laid by their coordinates alone");
}

void buildTerrain(const TerrainOptions & options) {
    checkTerrainOptions(options);
    StreamedTerrain old;
    if (!options.merge.empty()) old = openStreamedTerrain(options.merge);
    const ZMT::RASTER::HeightSource source(options.rasters, old.reference.wkt);
    GridTerrainCreation creation;
    creation.level = options.level;
    creation.resampling = options.resampling;
    creation.threads = options.threads;
    creation.wkt = old.terrain ? old.reference.wkt : source.reference().wkt;
    creation.oldTerrain = old.terrain;
    creation.createShading = options.lighting != FileLight::None;
    creation.storesNormals = options.lighting == FileLight::Normals;
    const Sunlight sun = options.light.value_or(defaultSun());
    creation.lightDirection = sun.direction;
    creation.ambientLight = sun.ambient;
    tellMissingSystem(options, source.reference().wkt, old.reference.wkt);
    if (old.terrain) tellShareOutside(options, source.band()->grid(), *old.terrain);
    std::wstring problem;
    if (!creation.run(StringUtils::Utf8String2WString(options.out), source.band(), &problem))
        throwFailure(problem, options.out + ": could not be written");
}

void addTerrainCommand(CLI::App & app) {
    auto * command =
        app.add_subcommand("terrain", "Writes heights of any size into one file that is read while it is "
                                      "looked at, from a disk or any web server.");
    const auto options = std::make_shared<TerrainOptions>();
    command
        ->add_option("FILES", options->rasters,
                     "RASTER... OUT: height rasters, the later ones above the earlier, and the file; its "
                     "usual suffix is ztt. The coordinate system stands in a file beside it, with the suffix "
                     "prj")
        ->required();
    command
        ->add_option("--level", options->level,
                     "Tiles have 2^LEVEL cells along a side, 1 to 7; fewer where the raster is narrower")
        ->capture_default_str();
    addParsedOption(*command, "--resampling", options->resampling, parseResampling,
                    "What coarse levels have: nearest or average heights");
    command->add_option("--merge", options->merge,
                        "Streaming terrain whose heights show where the rasters have none");
    addParsedOption(*command, "--lighting", options->lighting, parseFileLight,
                    "static: the light of one sun; normals: light is computed while drawing; none")
        ->default_str("static");
    addParsedOption(*command, "--light", options->light, parseSunlight,
                    "AZIMUTH,ELEVATION[,AMBIENT] of the static light: degrees clockwise from north, degrees "
                    "above the horizon, and the share of light from everywhere");
    addThreadsOption(*command, options->threads);
    addOutputNote(*command);
    command->callback([options] {
        options->out = takeLast(options->rasters, "FILES must be RASTER... OUT: at least two");
        buildTerrain(*options);
    });
}

// --- textures

StreamingTextureOptions::Pixels parsePixels(const std::string & text) {
    return oneOf<StreamingTextureOptions::Pixels>("--format", text,
                                                  {{"auto", StreamingTextureOptions::P_AsDelivered},
                                                   {"rgba", StreamingTextureOptions::P_RGBA},
                                                   {"grey", StreamingTextureOptions::P_Luminance},
                                                   {"dxt1", StreamingTextureOptions::P_DXT1},
                                                   {"dxt5", StreamingTextureOptions::P_DXT3}});
}

struct TextureOptions {
    std::vector<std::string> images;
    std::string out, terrain;
    unsigned tileSize = 512;
    std::uint64_t key = 0;
    StreamingTextureOptions writing;
};

void buildTexture(const TextureOptions & options) {
    checkThreads(options.writing.threads);
    if (options.tileSize < 16 || options.tileSize > 4096)
        throw UsageError("--tile must be from 16 to 4096: " + std::to_string(options.tileSize));
    std::vector<NamedFile> inputs = {{"--terrain", options.terrain}};
    for (const std::string & image : options.images)
        inputs.push_back({"IMAGE", image});
    checkOutputs(inputs, {{"OUT", options.out}});
    if (options.images.size() > 1)
        throw UsageError("one IMAGE is written at a time; join several with gdalbuildvrt first");
    const StreamedTerrain opened = openStreamedTerrain(options.terrain);
    const auto pyramid = ZMT::RASTER::GeoFile::openImage(options.images.front(), opened.reference.wkt);
    ZMT::CORE::GeoTransformation::setNBXOrigin(opened.overview->origin());
    const auto root = opened.terrain->rootTile()->geometryPatchHACK(opened.terrain);
    const bool written = ZMT::CORE::AsyncQuadtreeTerrainTexture::create(
        StringUtils::Utf8String2WString(options.out), root, pyramid, options.tileSize, options.key,
        options.writing);
    if (written) return;
    Reports::throwFirst();
    throwFailure(L"", options.out + ": could not be written");
}

void addTextureCommand(CLI::App & app) {
    auto * command =
        app.add_subcommand("texture", "Writes an image of any size into one file that is read while a "
                                      "streaming terrain is looked at, from a disk or any web server.");
    const auto options = std::make_shared<TextureOptions>();
    command
        ->add_option("FILES", options->images,
                     "IMAGE OUT: an image in any format that GDAL reads, or a texture pyramid, and the file; "
                     "its usual suffix is zts")
        ->required();
    command->add_option("--terrain", options->terrain, "Streaming terrain on which the image lies")
        ->required();
    command->add_option("--tile", options->tileSize, "Largest side of a tile in pixels")
        ->capture_default_str();
    addParsedOption(*command, "--format", options->writing.pixels, parsePixels,
                    "Pixels: auto, rgba, grey, dxt1 or dxt5")
        ->default_str("auto");
    addParsedOption(*command, "--key", options->key, parseKey, "Scrambles the file; who reads it needs it");
    addThreadsOption(*command, options->writing.threads);
    addOutputNote(*command);
    command->callback([options] {
        options->out = takeLast(options->images, "FILES must be IMAGE OUT");
        buildTexture(*options);
    });
}

} // namespace

void addStreamingBuildCommands(CLI::App & app) {
    addTerrainCommand(app);
    addTextureCommand(app);
}
