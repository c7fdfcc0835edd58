// Models and their places first, then the one scene of all, then its trees, whose paging files get names that
// no file has: a viewer that looks at a former build keeps it. The scene gets its name last, and the paging
// files of the former build go.

#include "citybuilding.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <utility>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/file.h>
#include <nbx/data/folderlock.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/texturedtriangles/citymodels.h>
#include <zmt/core/texturedtriangles/heldpagingfiles.h>
#include <zmt/core/texturedtriangles/modelshading.h>
#include <zmt/util/occlusion/citylight.h>

#include "landscape/errors.h"
#include "landscape/groundlayers.h"
#include "landscape/reports.h"
#include "landscape/step.h"
#include "landscape/terraininput.h"
#include "program/stage.h"

namespace {

using NBX::ModelPlacement;
using ZMT::CORE::CityAssembly;
using ZMT::CORE::CityModels;
using ZMT::CORE::TexturedTriangleTree;
using ZMT::RASTER::CoordinateSystem;
using ZMT::RASTER::GeoReference;
using Point = NBX::Vector3Base<double>;

/// Of the pictures that the city is looked at in, for the size of its texels.
constexpr int s_screenSize = 800;
constexpr double s_buildingFieldOfView = 90.0;

std::wstring wide(const std::string & text) {
    return NBX::StringUtils::Utf8String2WString(text);
}

/// The ground of `--terrain`; none without it.
ModelGround groundOf(const std::string & terrain) {
    if (terrain.empty()) return {};
    if (isStreamedTerrain(terrain)) {
        const StreamedTerrain opened = openStreamedTerrain(terrain);
        return {
            terrain, opened.reference, [opened](const ZMT::RASTER::MapPlace & place) {
                const double height = opened.terrain->calculateHeight(Point(place.x, 0.0, place.y), false);
                return opened.terrain->isUndefinedHeightValue(height) ? CityModels::Model::unknown : height;
            }};
    }
    const TerrainInput opened = readTerrain(terrain);
    return {terrain, opened.reference, [opened](const ZMT::RASTER::MapPlace & place) {
                const double height = opened.grid->calculateHeight(Point(place.x, 0.0, place.y));
                return opened.grid->isUndefinedHeightValue(height) ? CityModels::Model::unknown : height;
            }};
}

/// The system of the map in which the city stands.
GeoReference mapOf(const CityBuilding & building, const ModelGround & ground, const PlacedModels & models) {
    if (!building.system.empty()) {
        const GeoReference map = CoordinateSystem::parse(building.system); // which knows its own WKT
        if (ground.isThere() && !CoordinateSystem::areSame(map, ground.reference))
            throw UsageError("--system is another one than that of --terrain, " +
                             CoordinateSystem::describe(ground.reference) + "; leave it out");
        return map;
    }
    if (ground.isThere()) return ground.reference;
    if (models.placed.empty()) return {};
    const ModelPlacement & first = models.placed.front();
    return CoordinateSystem::utm({first.longitude, first.latitude});
}

/// Vertices are floats relative to the middle of the city.
void tellLostPrecision(const CityAssembly & city) {
    constexpr double mostReach = 16384.0; // metres, up to which a float is right to a millimetre
    double reach = 0.0;
    for (const CityModels::Model & model : city.table(city.origin())) {
        if (!model.box.isDefined()) continue;
        for (const Point & corner : {model.box.getLLF(), model.box.getURB()})
            reach = std::max({reach, std::abs(corner.x), std::abs(corner.y), std::abs(corner.z)});
    }
    if (!(reach <= 1024.0 * mostReach))
        throw DataError("the models stand " + std::to_string(std::llround(2e-3 * reach)) +
                        " km apart, which no city is; check their places, or build them by themselves");
    if (reach > mostReach)
        writeError("warning: the models stand " + std::to_string(std::llround(2e-3 * reach)) +
                   " km apart: their vertices are right to " + std::to_string(std::ceil(reach / mostReach)) +
                   " mm; build them in several cities");
}

/// Settings of the class while it lives.
class TreeSettings {
public:
    explicit TreeSettings(const CityBuilding & building)
        : format_(TexturedTriangleTree::getDefaultTextureFormat()),
          isUnique_(TexturedTriangleTree::uniqueTextureParameterizationEnforced()) {
        TexturedTriangleTree::setDefaultTextureFormat(building.format);
        TexturedTriangleTree::enforceUniqueTextureParameterization(building.isUnique ||
                                                                   building.hasOcclusion);
    }
    ~TreeSettings() {
        TexturedTriangleTree::setDefaultTextureFormat(format_);
        TexturedTriangleTree::enforceUniqueTextureParameterization(isUnique_);
    }
    TreeSettings(const TreeSettings &) = delete;
    TreeSettings & operator=(const TreeSettings &) = delete;

private:
    const TexturedTriangleTree::TextureFormat format_;
    const bool isUnique_;
};

/// Those of what stands there already; nothing where that is no city.
std::vector<std::string> formerPagingFiles(const std::string & path) {
    if (!NBX::File::isFile(path)) return {};
    const Reports unheard;
    try {
        return CityModels::load(path)->pagingFiles();
    } catch (const NBX::Exception &) {
        return {};
    }
}

/// The scene that is written as `out`. Behind a link the files of the build stand where it leads to; other
/// names stay as they were given.
std::string sceneOf(const std::string & out) {
    std::error_code ignored;
    const bool isLink = std::filesystem::is_symlink(std::filesystem::symlink_status(out, ignored));
    return isLink ? NBX::AtomicFileWriter::goal(out) : out;
}

/// Its paging files are called after it, and stand in the scene by names alone, also on a server.
void checkSceneName(const std::string & scene) {
    const std::string name = NBX::File::fileName(scene);
    const std::size_t at = name.find_first_of("#?:\\");
    if (at != std::string::npos)
        throw UsageError("--out may not have '" + name.substr(at, 1) +
                         "' in its name, which no URL of its files could have: " + name);
}

/// Of paging files: of what is opaque and what is not, textures and light.
constexpr const char * s_pagingKinds[] = {"opaque", "trans", "opaque.light", "trans.light"};

/// The names of a build's files beside the scene `path`: its own name with a number.
class BuildNames {
public:
    explicit BuildNames(const std::string & path) {
        const std::string suffix = NBX::File::extensionName(path);
        stem_ = suffix.empty() ? path : path.substr(0, path.size() - suffix.size() - 1);
        suffix_ = suffix.empty() ? "city" : suffix;
    }

    /// What trees name their paging files after.
    std::string scene(std::uint64_t number) const {
        return stem_ + "." + std::to_string(number) + "." + suffix_;
    }
    std::string paging(std::uint64_t number, const char * kind) const {
        return stem_ + "." + std::to_string(number) + "." + kind + "." + suffix_;
    }
    /// That of the light on what has `textures` as its paging file, in a build without a number.
    std::wstring light(const std::wstring & textures) const {
        return wide(paging(0, textures == wide(paging(0, "trans")) ? "trans.light" : "opaque.light"));
    }
    /// The name of a file of the build that has no number yet.
    std::string numbered(const std::string & path, std::uint64_t number) const {
        for (const char * kind : s_pagingKinds)
            if (path == paging(0, kind)) return paging(number, kind);
        return path;
    }
    /// Above those of all builds that have files in the folder, and of the former scene, which may have lost
    /// its files: a name that was given is not given again as long as anything tells of it.
    std::uint64_t nextNumber(const std::vector<std::string> & former) const {
        std::uint64_t highest = 0;
        const std::string folder = NBX::File::pathName(stem_);
        for (const std::string & name :
             NBX::File::matchingEntries(folder.empty() ? "." : folder, "*", true, true))
            highest = std::max(highest, numberOf(folder + name).value_or(0));
        for (const std::string & file : former)
            highest = std::max(highest, numberOf(file).value_or(0));
        return highest + 1;
    }
    /// Those of `files` that a build of this scene has made.
    std::vector<std::string> ownOf(const std::vector<std::string> & files) const {
        std::vector<std::string> own;
        for (const std::string & file : files)
            if (numberOf(file)) own.push_back(file);
        return own;
    }

private:
    /// Nothing of a file that no build of this scene has made.
    std::optional<std::uint64_t> numberOf(const std::string & file) const {
        if (file.rfind(stem_ + ".", 0) != 0) return {};
        const std::string rest = file.substr(stem_.size() + 1);
        std::uint32_t number = 0;
        const std::errc error = std::from_chars(rest.data(), rest.data() + rest.size(), number).ec;
        if (error != std::errc()) return {};
        for (const char * kind : s_pagingKinds)
            if (file == paging(number, kind)) return number;
        return {};
    }

    std::string stem_, suffix_;
};

/// Removes files unless it is told to keep them.
class NewFiles {
public:
    explicit NewFiles(std::vector<std::string> files) : files_(std::move(files)) {}
    ~NewFiles() {
        std::error_code ignored;
        for (const std::string & file : files_)
            std::filesystem::remove(file, ignored);
    }
    NewFiles(const NewFiles &) = delete;
    NewFiles & operator=(const NewFiles &) = delete;
    void keep() { files_.clear(); }

private:
    std::vector<std::string> files_;
};

/// Gives the files of a build, which have no number yet, that one.
void setNumber(const CityModels & city, const BuildNames & names, std::uint64_t number) {
    for (const auto & tree : city.trees())
        for (int layer = 0; layer < tree->getNumberOfLayers(); ++layer) {
            const std::string name = NBX::StringUtils::WString2Utf8String(tree->getPagingFile(layer));
            tree->changePagingFileName(wide(names.numbered(name, number)), layer);
        }
}

/// Names a build that is complete, and lets the one before go. Other processes may build the same city: who
/// comes last finds the whole build of the others, and takes its place. Without locks builds may still end
/// at the same time: then each has a number of its own, and the files of all but one stay.
void publish(const CityModels & city, ZMT::CORE::HeldPagingFiles & held, const BuildNames & names,
             const std::string & out) {
    const NBX::FolderLock alone(NBX::File::pathName(out), [&] {
        writeError(out + ": waiting for another process that writes a city into the same folder");
    });
    const std::vector<std::string> former = formerPagingFiles(out);
    std::uint64_t number = names.nextNumber(former);
    while (!held.name([&](const std::string & path) { return names.numbered(path, number); }))
        ++number;
    setNumber(city, names, number);
    NewFiles newFiles(city.pagingFiles());
    city.write(out);
    newFiles.keep();
    std::error_code ignored;
    for (const std::string & file : names.ownOf(former))
        std::filesystem::remove(file, ignored);
}

/// Textures of triangles of their own are drawn, and so is light.
void checkDrawing() {
    const NBX::SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(16, 16));
    if (!canvas->create())
        throw DataError("--unique and --occlusion need OpenGL, and no context could be made; install Mesa's "
                        "software renderer");
}

void bakeOcclusion(const CityModels & city, const ModelGround & ground, const BuildNames & names) {
    const Stage stage(L"light");
    const NBX::SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(16, 16));
    ZMT::UTIL::CityLight::Settings settings;
    if (ground.isThere()) settings.groundAt = ground.height;
    const bool isDone = ZMT::UTIL::CityLight::bake(
        city, settings, canvas.get(), [&](const std::wstring & textures) { return names.light(textures); });
    if (isDone) return;
    Reports::throwFirst();
    throw DataError("cancelled");
}

std::uint64_t atlasesOf(const TexturedTriangleTree & tree) {
    std::uint64_t atlases = 0;
    for (int layer = 0; layer < tree.getNumberOfLayers(); ++layer)
        atlases += tree.getRootAtlas(layer) ? 1 : 0;
    const auto & nodes = tree.getRenderTree();
    if (!nodes) return atlases;
    std::vector<ZMT::CORE::RenderTree::NodePointer> waiting{nodes->root()};
    while (!waiting.empty()) {
        const auto node = waiting.back();
        waiting.pop_back();
        for (const std::uint64_t size : node->content.blockSizes)
            atlases += size > 0 ? 1 : 0;
        for (unsigned i = 0; nodes->hasChildren(node) && i < 4; ++i)
            waiting.push_back(nodes->child(node, i));
    }
    return atlases;
}

std::optional<double> shareOf(const ZMT::CORE::HeldPagingFiles::Fill & fill) {
    return fill.all > 0.0 ? std::optional(fill.used / fill.all) : std::nullopt;
}

CityReport reportOf(const CityModels & city, const CityAssembly & assembly, const ModelLibrary & library,
                    const std::string & out) {
    CityReport report;
    report.models = assembly.size();
    report.triangles = assembly.triangles();
    report.textures = library.textures();
    report.assumptions = library.assumptions();
    for (const auto & tree : city.trees())
        report.atlases += atlasesOf(*tree);
    report.files = city.pagingFiles();
    report.files.insert(report.files.begin(), out);
    std::error_code ignored;
    for (const std::string & file : report.files)
        report.bytes += std::filesystem::file_size(file, ignored);
    return report;
}

} // namespace

TexturedTriangleTree::TextureFormat parseCityFormat(const std::string & text) {
    constexpr std::pair<const char *, TexturedTriangleTree::TextureFormat> names[] = {
        {"rgba8", TexturedTriangleTree::TextureFormatRGBA8},
        {"luminance", TexturedTriangleTree::TextureFormatLuminance8},
        {"rgba5551", TexturedTriangleTree::TextureFormatRGBA5551},
        {"dxt1", TexturedTriangleTree::TextureFormatDXT1},
        {"jpeg", TexturedTriangleTree::TextureFormatJPEG}};
    for (const auto & [name, format] : names)
        if (text == name) return format;
    throw UsageError("--format must be one of rgba8, luminance, rgba5551, dxt1, jpeg: " + text);
}

void checkCityBuilding(const CityBuilding & building) {
    checkSceneName(sceneOf(building.out));
    const int edge = building.atlasSize;
    if (edge < 64 || edge > 8192 || (edge & (edge - 1)) != 0)
        throw UsageError("--atlas-size must be a power of two from 64 to 8192: " + std::to_string(edge));
    if (!(building.distance > 0.0) || building.distance > 1e6)
        throw UsageError("--distance must be above 0 and at most 1e6 m");
    if (!(building.quality > 0.0) || building.quality > 100.0)
        throw UsageError("--quality must be above 0 and at most 100");
}

std::vector<NamedFile> inputFiles(const CityBuilding & building) {
    std::vector<NamedFile> files = {{"--placements", building.placements}, {"--terrain", building.terrain}};
    for (const std::string & path : building.inputs)
        files.push_back({"MODEL", path});
    return files;
}

CityReport buildCity(const CityBuilding & building) {
    // What cannot be written or drawn is noticed before the long work.
    const std::string out = sceneOf(building.out);
    const NBX::AtomicFileWriter writable(out);
    if (building.isUnique || building.hasOcclusion) checkDrawing();
    const PlacedModels models = placedModels(building);
    const ModelGround ground = groundOf(building.terrain);
    const GeoReference map = mapOf(building, ground, models);
    ModelLibrary library(building.reading);
    const CityAssembly assembly = assembledCity(models, building, ground, map, library);
    checkOutputs(library.files(), {{"--out", building.out}});
    tellLostPrecision(assembly);
    tellOutside(assembly, ground);
    const Point origin = assembly.origin();
    const NBX::SO<NBX::SceneThing> scene = assembly.scene(origin);
    if (building.isShaded) {
        const Stage stage(L"shade");
        const Step shadingModels("shading models");
        ZMT::CORE::ModelShading shading;
        shading.toSun = building.light.value_or(defaultSun()).direction;
        if (building.light) shading.skyShare = building.light->ambient;
        shading.bake(scene);
    }
    const BuildNames names(out);
    ZMT::CORE::HeldPagingFiles held; // to be named when all is done
    const TreeSettings settings(building);
    const auto drawn = TexturedTriangleTree::createOptimizedScene(
        scene, building.distance, wide(names.scene(0)), true, building.quality, s_screenSize,
        s_buildingFieldOfView, building.atlasSize, nullptr);
    if (!drawn) {
        if (NBX::ConsoleProgressDisplay::interrupted()) throw DataError("cancelled");
        Reports::throwFirst();
        throw DataError(out + ": could not be built");
    }
    const NBX::SO<CityModels> city(new CityModels(drawn, origin, map, assembly.table(origin)));
    if (NBX::ConsoleProgressDisplay::interrupted()) throw DataError("cancelled");
    if (building.hasOcclusion) bakeOcclusion(*city, ground, names);
    publish(*city, held, names, out);
    CityReport report = reportOf(*city, assembly, library, out);
    report.opaqueFill = shareOf(held.fill(names.paging(0, "opaque")));
    report.transparentFill = shareOf(held.fill(names.paging(0, "trans")));
    return report;
}
