// What streams: terrains from height rasters, textures from images.

#include "commands.h"

#include <cctype>
#include <cstdint>
#include <filesystem>
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
#include "landscape/terraininput.h"
#include "program/stage.h"

#include <nbx/data/file.h>
#include <nbx/data/locator.h>
#include <nbx/image/image.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/eventloop.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/gridterraincreation.h>
#include <zmt/core/terrain/geometry/grid/gridterrainplan.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/heightsource.h>
#include <zmt/raster/gdal/projectionfile.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/layeredimagepyramid.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace {

using NBX::StringUtils;
using ZMT::CORE::StreamingTextureOptions;
using ZMT::CORE::GRID::GridTerrainCreation;
using ZMT::CORE::GRID::GridTerrainPlan;
using ZMT::RASTER::ProjectionFile;
using ZMT::RASTER::TiledGeoImagePyramid;

constexpr unsigned s_mostThreads = 1024;
constexpr unsigned s_mostParts = 1000000;
/// Each is a file that is open all the time, and may keep coarse levels of 22 MiB in memory.
constexpr std::size_t s_mostImages = 64;
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
    /// Rasters, or parts that are joined.
    std::vector<std::string> inputs;
    std::string out, merge, crs;
    std::string plan;
    std::optional<GridTerrainPlan::Share> part;
    bool joins = false;
    bool fillVoids = false;
    unsigned level = 7;
    unsigned threads = 0;
    GridTerrainCreation::Resampling resampling = GridTerrainCreation().resampling;
    FileLight lighting = FileLight::Static;
    std::optional<Sunlight> light;
};

/// What is read and written, and how messages call it.
void checkTerrainFiles(const TerrainOptions & options, const std::vector<NamedFile> & outputs) {
    std::vector<NamedFile> inputs;
    for (const std::string & input : options.inputs)
        inputs.push_back({options.joins ? "PART" : "RASTER", input});
    if (!options.merge.empty()) inputs.push_back({"--merge", options.merge});
    checkOutputs(inputs, outputs);
}

void checkTerrainOptions(const TerrainOptions & options) {
    if (options.level < 1 || options.level > 7)
        throw UsageError("--level must be from 1 to 7: " + std::to_string(options.level));
    checkThreads(options.threads);
    if (options.light && options.lighting != FileLight::Static)
        throw UsageError("--light is for --lighting static; normals are lit while they are drawn");
    if (!options.merge.empty() && !options.crs.empty())
        throw UsageError("--crs cannot go with --merge, whose terrain has a system; leave one of them out");
    const bool isOneRaster = options.inputs.size() == 1 && options.merge.empty() && options.plan.empty();
    if (options.fillVoids && !isOneRaster)
        throw UsageError(
            "--fill-voids is for one raster without --merge and --plan; fill the voids of others "
            "with gdal_fillnodata.py");
}

/// What of the rasters the old terrain has no room for.
void tellShareOutside(const TerrainOptions & options, const ZMT::RASTER::RasterGrid & grid,
                      const ZMT::CORE::GRID::GridTerrain & old) {
    const double share = GridTerrainCreation::shareOutside(grid, old);
    if (share < s_leastShare || share >= 1.0) return;
    std::ostringstream percent;
    percent << std::setprecision(3) << 100.0 * share; // two would make 1e+02 of 99.6
    writeError("warning: " + options.inputs.front() + ": " + percent.str() +
               " % lie outside of the square of " + shownName(options.merge) +
               " and are left out; to have all of it, make a new terrain of both");
}

/// Where there is no coordinate system to go by.
void tellMissingSystem(const TerrainOptions & options, const std::string & system,
                       const std::string & oldSystem) {
    const std::string & raster = options.inputs.front();
    if (!oldSystem.empty() && system.empty())
        writeError("warning: " + raster + ": has no coordinate system; it is taken to be in that of " +
                   shownName(options.merge));
    else if (!options.merge.empty() && oldSystem.empty() && !system.empty())
        writeError("warning: " + shownName(options.merge) + ": has no coordinate system; " + raster +
                   " will be laid by its coordinates alone");
    else if (system.empty())
        writeError("warning: " + raster +
                   ": has no coordinate system; images will be laid by their coordinates alone");
}

/// In memory, since far neighbours count.
ZMT::RASTER::HeightSource withFilledVoids(const TerrainOptions & options) {
    constexpr std::uint64_t most = ZMT::RASTER::RasterFile::defaultMaxCells;
    const std::string & path = options.inputs.front();
    const ZMT::RASTER::RasterGrid grid = ZMT::RASTER::GeoFile::openHeights(path)->grid();
    if (grid.cellsY > most / grid.cellsX)
        throw DataError(path + ": has more than the " + std::to_string(most) +
                        " cells whose voids fit into memory; fill them with gdal_fillnodata.py, or leave "
                        "--fill-voids out");
    TerrainReading how;
    how.fillVoids = true;
    how.crs = options.crs;
    return ZMT::RASTER::HeightSource(readTerrainRaster(path, how));
}

/// The rasters and the terrain that they are merged over.
struct TerrainSources {
    explicit TerrainSources(const TerrainOptions & options)
        : old(options.merge.empty() ? StreamedTerrain() : openStreamedTerrain(options.merge)),
          heights(options.fillVoids
                      ? withFilledVoids(options)
                      : ZMT::RASTER::HeightSource(options.inputs, old.reference.wkt, options.crs)) {
        if (!options.crs.empty() && !heights.reference().isGeoreferenced)
            throw DataError(options.inputs.front() +
                            ": has no place on the map, so that --crs means nothing; leave it out");
    }

    StreamedTerrain old;
    ZMT::RASTER::HeightSource heights;
};

GridTerrainCreation creationOf(const TerrainOptions & options, const TerrainSources & sources) {
    const StreamedTerrain & old = sources.old;
    const ZMT::RASTER::HeightSource & source = sources.heights;
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
    for (const ZMT::RASTER::HeightSource::File & file : source.files())
        tellWhatIsTaken(file.bands, file.heightUnit, file.path);
    const ZMT::RASTER::RasterBand & band = *source.band();
    // What was read into memory told it itself.
    if (!options.fillVoids)
        tellAbsurdCells(band.cellSizeX(), band.cellSizeY(), source.reference(), options.inputs.front());
    tellMissingSystem(options, source.reference().wkt, old.reference.wkt);
    if (old.terrain) tellShareOutside(options, source.band()->grid(), *old.terrain);
    return creation;
}

/// The terrain and what stands beside it.
std::vector<NamedFile> terrainOutputs(const TerrainOptions & options) {
    return {{"OUT", options.out}, {"the .prj beside OUT", ProjectionFile::pathFor(options.out)}};
}

/// Of the terrain that was written, whose root knows them.
void tellAbsurdHeightsOf(const std::string & path) {
    const Reports told; // it can be read, or else who looks at it hears of it
    const auto terrain =
        ZMT::CORE::GRID::AsyncGridTerrain::load(StringUtils::Utf8String2WString(path), false);
    if (terrain) tellAbsurdHeights(terrain->lowestPoint().y, terrain->highestPoint().y, path);
}

void buildTerrain(const TerrainOptions & options) {
    checkTerrainOptions(options);
    checkTerrainFiles(options, terrainOutputs(options));
    const TerrainSources sources(options);
    const GridTerrainCreation creation = creationOf(options, sources);
    const Stage stage(L"build");
    std::wstring problem;
    if (!creation.run(StringUtils::Utf8String2WString(options.out), sources.heights.band(), &problem))
        throwFailure(problem, options.out + ": could not be written");
    if (!options.fillVoids) tellAbsurdHeightsOf(options.out);
}

// --- terrains in parts

/// Whether a name that no URL is recognised in holds a password all the same: that of a data base, or one in
/// an encoded URL.
bool hidesPassword(const std::string & name) {
    std::string text = NBX::Locator::decoded(name);
    if (NBX::Locator::withoutLoginsIn(text) != text) return true;
    for (char & letter : text)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    const auto has = [&text](const char * word) { return text.find(word) != std::string::npos; };
    return has("password=") || has("pwd=") || has("authorization");
}

/// The name of a raster or of the old terrain as a plan keeps it: understood in other folders as well, and
/// nothing that others may not read. Throws `UsageError`.
std::string storedName(const std::string & name) {
    const std::string given = NBX::Locator(name).text();
    if (NBX::File::isFile(given)) return NBX::File::absolutePath(given);
    const std::string stored = NBX::Locator::withoutLoginsIn(given);
    if (stored != given)
        writeError("warning: " + shownName(name) +
                   ": the plan keeps neither user name nor password; who writes a part needs them in a netrc "
                   "file");
    if (hidesPassword(stored))
        throw UsageError(
            "--plan: the plan would keep the password in the name of a raster; give it by a name "
            "without one, such as that of a virtual raster");
    return stored;
}

/// Sizes and times of all files that are read for the rasters and the old terrain.
std::string stampOf(const TerrainOptions & options) {
    std::vector<std::string> files;
    for (const std::string & raster : options.inputs) {
        const std::vector<std::string> parts = ZMT::RASTER::RasterFile::partsOf(raster);
        files.insert(files.end(), parts.begin(), parts.end());
    }
    if (!options.merge.empty()) files.push_back(options.merge);
    std::ostringstream stamp;
    for (const std::string & file : files) {
        std::error_code error;
        const auto size = std::filesystem::file_size(file, error);
        // On a web server, say.
        if (error) continue;
        stamp << size << ' ' << std::filesystem::last_write_time(file, error).time_since_epoch().count()
              << '\n';
    }
    return stamp.str();
}

void planTerrain(const TerrainOptions & options) {
    checkTerrainOptions(options);
    checkTerrainFiles(options, {{"--plan", options.plan}});
    GridTerrainPlan::Origin origin;
    for (const std::string & raster : options.inputs)
        origin.rasters.push_back(storedName(raster));
    if (!options.merge.empty()) origin.oldTerrain = storedName(options.merge);
    const TerrainSources sources(options);
    origin.system = options.crs;
    const Stage stage(L"plan");
    origin.stamp = [&options] { return stampOf(options); };
    if (!GridTerrainPlan::write(options.plan, creationOf(options, sources), sources.heights.band(), origin))
        throwFailure(L"", options.plan + ": could not be written");
}

void buildPart(TerrainOptions options) {
    checkThreads(options.threads);
    const GridTerrainPlan plan(options.plan);
    options.inputs = plan.rasters();
    options.merge = plan.oldTerrain();
    options.crs = plan.system();
    checkTerrainFiles(options, {{"PART", options.out}});
    checkOutputs({{"--plan", options.plan}}, {{"PART", options.out}});
    // A URL that is on no command line.
    std::optional<ZMT::CORE::EventLoop> eventLoop;
    if (isUrl(options.merge)) eventLoop.emplace();
    const TerrainSources sources(options);
    const Stage stage(L"build");
    if (!plan.writePart(
            options.out, *options.part, sources.heights.band(), sources.old.terrain,
            [&options] { return stampOf(options); }, options.threads))
        throwFailure(L"", options.out + ": could not be written");
}

void joinTerrain(const TerrainOptions & options) {
    checkThreads(options.threads);
    const GridTerrainPlan plan(options.plan);
    checkTerrainFiles(options, terrainOutputs(options));
    checkOutputs({{"--plan", options.plan}}, terrainOutputs(options));
    const Stage stage(L"join");
    if (!plan.join(options.inputs, options.out, options.threads))
        throwFailure(L"", options.out + ": could not be written");
    tellAbsurdHeightsOf(options.out);
}

/// K/N. Throws `UsageError`.
GridTerrainPlan::Share parseShare(const std::string & text) {
    GridTerrainPlan::Share share;
    char rest = 0;
    std::istringstream in(text);
    unsigned long long part = 0, parts = 0;
    char slash = 0;
    if (!(in >> part >> slash >> parts) || slash != '/' || in >> rest || part < 1 || part > parts ||
        parts > s_mostParts || !std::isdigit(static_cast<unsigned char>(text.front())))
        throw UsageError("--part must be K/N, with K from 1 to N and N at most " +
                         std::to_string(s_mostParts) + ": " + text);
    share.part = static_cast<unsigned>(part);
    share.parts = static_cast<unsigned>(parts);
    return share;
}

/// Files and options of the four ways to call it.
void runTerrainCommand(const CLI::App & command, TerrainOptions & options) {
    const bool isPlan = !options.plan.empty() && !options.part && !options.joins;
    if (options.part && options.joins) throw UsageError("--part and --join exclude each other");
    if ((options.part || options.joins) && options.plan.empty())
        throw UsageError(std::string(options.part ? "--part" : "--join") +
                         " needs --plan FILE, the plan that all parts share");
    for (const char * option :
         {"--level", "--resampling", "--merge", "--crs", "--lighting", "--light", "--fill-voids"})
        if ((options.part || options.joins) && command.count(option) > 0)
            throw UsageError(std::string(option) + " belongs to the plan; give it where that is made");
    if (options.part && options.inputs.size() != 1)
        throw UsageError("FILES must be the part to write alone: the plan knows the rasters");
    if (isPlan) return planTerrain(options);
    if (options.part) {
        options.out = options.inputs.front();
        return buildPart(options);
    }
    options.out = takeLast(options.inputs, options.joins ? "FILES must be PART... OUT: at least two"
                                                         : "FILES must be RASTER... OUT: at least two");
    options.joins ? joinTerrain(options) : buildTerrain(options);
}

void addTerrainCommand(CLI::App & app) {
    auto * command =
        app.add_subcommand("terrain", "Writes heights of any size into one file that is read while it is "
                                      "looked at, from a disk or any web server.");
    const auto options = std::make_shared<TerrainOptions>();
    command
        ->add_option("FILES", options->inputs,
                     "RASTER... OUT: height rasters, the later ones above the earlier, and the file; its "
                     "usual suffix is ztt. The coordinate system stands in a file beside it, with the suffix "
                     "prj")
        ->required();
    command->add_option(
        "--plan", options->plan,
        "For terrains that several processes write. FILES are RASTER..., which are read once, "
        "and the plan is written; or it is read, with --part and --join");
    addParsedOption(*command, "--part", options->part, parseShare,
                    "K/N: FILES is the file to which part K of N is written by the plan");
    command->add_flag("--join", options->joins,
                      "FILES are PART... OUT: all parts of the plan, which become the file that one process "
                      "would write");
    command
        ->add_option("--level", options->level,
                     "Tiles have 2^LEVEL cells along a side, 1 to 7; fewer where the raster is narrower")
        ->capture_default_str();
    addParsedOption(*command, "--resampling", options->resampling, parseResampling,
                    "What coarse levels have: nearest or average heights");
    command->add_option("--merge", options->merge,
                        "Streaming terrain whose heights show where the rasters have none");
    addCrsOption(*command, options->crs);
    addVoidOption(*command, options->fillVoids);
    addParsedOption(*command, "--lighting", options->lighting, parseFileLight,
                    "static: the light of one sun; normals: light is computed while drawing; none")
        ->default_str("static");
    addParsedOption(*command, "--light", options->light, parseSunlight,
                    "AZIMUTH,ELEVATION[,AMBIENT] of the static light: degrees clockwise from north, degrees "
                    "above the horizon, and the share of light from everywhere");
    addThreadsOption(*command, options->threads);
    addRedirectsOption(*command);
    addOutputNote(*command);
    command->callback([command, options] { runTerrainCommand(*command, *options); });
}

// --- textures

StreamingTextureOptions::Pixels parsePixels(const std::string & text) {
    return oneOf<StreamingTextureOptions::Pixels>("--format", text,
                                                  {{"auto", StreamingTextureOptions::P_AsDelivered},
                                                   {"rgba", StreamingTextureOptions::P_RGBA},
                                                   {"grey", StreamingTextureOptions::P_Luminance},
                                                   {"dxt1", StreamingTextureOptions::P_DXT1},
                                                   {"dxt3", StreamingTextureOptions::P_DXT3},
                                                   {"dxt5", StreamingTextureOptions::P_DXT3}});
}

struct TextureOptions {
    std::vector<std::string> images;
    std::string out, terrain;
    unsigned tileSize = 512;
    std::uint64_t key = 0;
    StreamingTextureOptions writing;
    ImageOptions look;
};

void checkTextureOptions(const TextureOptions & options) {
    checkThreads(options.writing.threads);
    checkImageOptions(options.look, options.images.size());
    if (options.tileSize < 16 || options.tileSize > 4096)
        throw UsageError("--tile must be from 16 to 4096: " + std::to_string(options.tileSize));
    if (options.images.size() > s_mostImages)
        throw UsageError("at most " + std::to_string(s_mostImages) +
                         " images are written together; join them with gdalbuildvrt first");
    std::vector<NamedFile> inputs = {{"--terrain", options.terrain}};
    for (const std::string & image : options.images)
        inputs.push_back({"IMAGE", image});
    checkOutputs(inputs, {{"OUT", options.out}});
}

/// All images as one, in the system of the terrain.
NBX::SO<TiledGeoImagePyramid> openImages(const TextureOptions & options, const StreamedTerrain & ground) {
    const NBX::Bounds & box = ground.terrain->geoBoundingBox();
    const ZMT::RASTER::GeoExtent extent = {box.getLLF().x, box.getLLF().z, box.getURB().x, box.getURB().z};
    std::vector<NBX::SO<TiledGeoImagePyramid>> images;
    for (std::size_t i = 0; i < options.images.size(); ++i)
        images.push_back(openPixels(options.images[i], options.look.lookOf(i), extent, ground.reference.wkt));
    if (images.size() == 1) return images.front();
    NBX::SO<TiledGeoImagePyramid> all(new ZMT::RASTER::LayeredImagePyramid(images));
    if (all->overviews() == 0)
        throw DataError(options.images.front() +
                        ": lies too far from the other images for pixels of this size; choose images of one "
                        "area");
    return all;
}

bool isTransparent(const TiledGeoImagePyramid & image) {
    const NBX::LayerSequence layers = image.overview(0)->createEmptyImage(1, 1)->layerSequence();
    return layers == NBX::LS_LuminanceAlpha || layers == NBX::LS_RGBA;
}

/// What was asked for, or what keeps the alpha of the image.
StreamingTextureOptions writingOf(const TextureOptions & options, const TiledGeoImagePyramid & image) {
    StreamingTextureOptions writing = options.writing;
    if (writing.pixels != StreamingTextureOptions::P_Luminance || !isTransparent(image)) return writing;
    writeError("warning: " + options.images.front() +
               (options.images.size() > 1 ? " and the images above it may leave ground free"
                                          : ": has pixels without data or with alpha") +
               ", which grey cannot store; rgba is taken instead");
    writing.pixels = StreamingTextureOptions::P_RGBA;
    return writing;
}

void buildTexture(const TextureOptions & options) {
    checkTextureOptions(options);
    const StreamedTerrain ground = openStreamedTerrain(options.terrain);
    const NBX::SO<TiledGeoImagePyramid> image = openImages(options, ground);
    const StreamingTextureOptions writing = writingOf(options, *image);
    ZMT::CORE::GeoTransformation::setNBXOrigin(ground.overview->origin());
    const auto root = ground.terrain->rootTile()->geometryPatchHACK(ground.terrain);
    const Stage stage(L"build");
    const bool written = ZMT::CORE::AsyncQuadtreeTerrainTexture::create(
        StringUtils::Utf8String2WString(options.out), root, image, options.tileSize, options.key, writing);
    if (written) return;
    Reports::throwFirst();
    throwFailure(L"", options.out + ": could not be written");
}

void addTextureCommand(CLI::App & app) {
    auto * command =
        app.add_subcommand("texture", "Writes images of any size into one file that is read while a "
                                      "streaming terrain is looked at, from a disk or any web server.");
    const auto options = std::make_shared<TextureOptions>();
    command
        ->add_option(
            "FILES", options->images,
            "IMAGE... OUT: images in any format that GDAL reads, or texture pyramids, the later ones "
            "above the earlier, and the file; its usual suffix is zts")
        ->required();
    command->add_option("--terrain", options->terrain, "Streaming terrain on which the images lie")
        ->required();
    command->add_option("--tile", options->tileSize, "Largest side of a tile in pixels")
        ->capture_default_str();
    addParsedOption(
        *command, "--format", options->writing.pixels, parsePixels,
        "Pixels: rgba, grey; dxt1, blocks with alpha of 1 bit; dxt3, blocks with alpha of 4 bits, "
        "which dxt5 stands for as well, since the file knows no other; auto: grey where the image "
        "has nothing else, rgba otherwise")
        ->default_str("auto");
    addColorOptions(*command, options->look);
    addCacheOption(*command, options->look.cache);
    addParsedOption(*command, "--key", options->key, parseKey, "Scrambles the file; who reads it needs it");
    addThreadsOption(*command, options->writing.threads);
    addRedirectsOption(*command);
    addOutputNote(*command);
    command->callback([options] {
        options->out = takeLast(options->images, "FILES must be IMAGE... OUT: at least two");
        buildTexture(*options);
    });
}

} // namespace

void addStreamingBuildCommands(CLI::App & app) {
    addTerrainCommand(app);
    addTextureCommand(app);
}
