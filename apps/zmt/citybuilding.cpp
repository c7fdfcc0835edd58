// Models and their places first, then the one scene of all, then its trees, whose paging files get names that
// no file has: a viewer that looks at a former build keeps it. The scene gets its name last, and the paging
// files of the former build go.

#include "citybuilding.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/file.h>
#include <nbx/data/folderlock.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/io/modelplacement.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/texturedtriangles/cityassembly.h>
#include <zmt/core/texturedtriangles/citymodels.h>
#include <zmt/core/texturedtriangles/heldpagingfiles.h>
#include <zmt/core/texturedtriangles/modelshading.h>
#include <zmt/raster/gdal/coordinatesystem.h>

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

/// What of a file is not in the city.
void tellLeftOut(const std::string & path, const std::string & line) {
    writeError("warning: " + path + ": " + line);
}

/// The ground under models; nothing without a terrain.
class Ground {
public:
    explicit Ground(const std::string & terrain) : name_(terrain) {
        if (terrain.empty()) return;
        if (isStreamedTerrain(terrain)) streamed_ = openStreamedTerrain(terrain);
        const bool isStreamed = bool(streamed_.terrain);
        if (!isStreamed) input_ = readTerrain(terrain);
        reference_ = isStreamed ? streamed_.reference : input_.reference;
    }

    bool isThere() const { return !name_.empty(); }
    const GeoReference & reference() const { return reference_; }
    /// Not a number where there is none.
    double knownHeightAt(const ZMT::RASTER::MapPlace & place) const {
        if (!isThere()) return CityModels::Model::unknown;
        const Point at(place.x, 0.0, place.y);
        const double height = streamed_.terrain ? streamed_.terrain->calculateHeight(at, false)
                                                : input_.grid->calculateHeight(at);
        const bool isUndefined = streamed_.terrain ? streamed_.terrain->isUndefinedHeightValue(height)
                                                   : input_.grid->isUndefinedHeightValue(height);
        return isUndefined ? CityModels::Model::unknown : height;
    }
    /// Throws `DataError` where there is no ground.
    double heightAt(const ZMT::RASTER::MapPlace & place, const std::string & model) const {
        if (!isThere())
            throw DataError(model +
                            ": stands on the ground, which no file tells; give the heights by --terrain");
        const double height = knownHeightAt(place);
        if (std::isnan(height))
            throw DataError(model + ": stands where " + name_ +
                            " has no ground; give a terrain that reaches there");
        return height;
    }

private:
    std::string name_;
    StreamedTerrain streamed_;
    TerrainInput input_;
    GeoReference reference_;
};

/// Models by their files, each read once.
class ModelLibrary {
public:
    explicit ModelLibrary(const NBX::ModelOptions & options) : options_(options) {}

    const NBX::Model & at(const std::string & path) {
        const auto known = models_.find(path);
        if (known != models_.end()) return known->second;
        NBX::Model model = NBX::ModelFile::read(path, options_);
        for (const std::string & line : model.leftOut)
            tellLeftOut(path, line);
        for (const NBX::ModelTexture & texture : model.textures)
            tell(path, texture);
        return models_.emplace(path, std::move(model)).first->second;
    }
    std::size_t textures() const { return textures_.size(); }
    /// What was taken for the axis and the unit of models whose files do not say, a line for all alike.
    std::vector<std::string> assumptions() const {
        std::map<std::string, std::vector<std::string>> alike;
        for (const auto & [path, model] : models_)
            if (std::string assumed = assumptionOf(model); !assumed.empty())
                alike[std::move(assumed)].push_back(NBX::File::fileName(path));
        std::vector<std::string> lines;
        lines.reserve(alike.size());
        for (auto & [assumed, names] : alike) {
            std::sort(names.begin(), names.end()); // the models are sorted by their folders
            const std::string others = " and " + std::to_string(names.size() - 1) + " more";
            lines.push_back(names.front() + (names.size() > 1 ? others : "") + ": " + assumed);
        }
        return lines;
    }
    /// Models and textures that were read, for `checkOutputs`.
    std::vector<NamedFile> files() const {
        std::vector<NamedFile> files;
        for (const auto & [path, model] : models_) {
            files.push_back({"a model", path});
            for (const NBX::ModelTexture & texture : model.textures)
                if (!texture.path.empty()) files.push_back({"a texture", texture.path});
        }
        return files;
    }

private:
    static std::string assumptionOf(const NBX::Model & model) {
        const bool hasAxis = model.upSource != NBX::ModelSource::Format;
        const bool hasUnit = model.unitSource != NBX::ModelSource::Format;
        char unit[64];
        std::snprintf(unit, sizeof unit, "a unit of %.10g m (--units)", model.metresPerUnit);
        const char axis = "xyz"[int(model.up)];
        std::string text = hasAxis ? "" : std::string(1, axis) + " up (--up)";
        if (!hasUnit) text += (text.empty() ? "" : ", ") + std::string(unit);
        return text.empty() ? text : text + ", as " + model.format + " files usually have";
    }
    void tell(const std::string & path, const NBX::ModelTexture & texture) {
        if (!texture.failure.empty())
            tellLeftOut(path, "texture " + texture.name + " is left out: " + texture.failure);
        else
            textures_.insert(texture.path.empty() ? path + "#" + texture.name : texture.path);
    }

    const NBX::ModelOptions options_;
    std::map<std::string, NBX::Model> models_;
    std::set<std::string> textures_;
};

/// Models that stand where a file says, and others, which `--at` places.
struct Inputs {
    std::vector<ModelPlacement> placed;
    std::vector<std::string> others;
    /// Of archives, as long as their models are read.
    std::vector<NBX::SO<NBX::SharedObj>> files;
};

/// The placements of a file, of `models` or of those that it names itself.
std::vector<ModelPlacement> placementsOf(Inputs & inputs, const std::string & path,
                                         const std::vector<std::string> & models = {}) {
    NBX::ModelPlacements read = NBX::PlacementFile::read(path, models);
    showInstead(read.folder, path + ": ");
    for (const std::string & line : read.leftOut)
        tellLeftOut(path, line);
    inputs.files.push_back(read.files);
    std::erase_if(read.models, [&](const ModelPlacement & placement) {
        const NBX::Vector3Base<double> & scale = placement.scale;
        const bool isUsable = scale.x * scale.y * scale.z != 0.0;
        if (!isUsable) tellLeftOut(path, placement.name + " is left out: its scale flattens it");
        return !isUsable;
    });
    return std::move(read.models);
}

/// Of the models on the command line alone.
void placeOthers(Inputs & inputs, const std::string & path) {
    const std::vector<std::string> models = std::exchange(inputs.others, {});
    std::set<std::string> placed;
    for (ModelPlacement & placement : placementsOf(inputs, path, models)) {
        if (std::find(models.begin(), models.end(), placement.model) == models.end()) continue;
        placed.insert(placement.model);
        inputs.placed.push_back(std::move(placement));
    }
    for (const std::string & model : models)
        if (placed.count(model) == 0) inputs.others.push_back(model);
    if (placed.empty())
        throw DataError(path + ": places none of the models; it has to name the files as they are called");
}

Inputs inputsOf(const CityBuilding & building) {
    Inputs inputs;
    for (const std::string & path : building.inputs) {
        if (!NBX::PlacementFile::recognizes(path)) {
            inputs.others.push_back(path);
            continue;
        }
        std::vector<ModelPlacement> placed = placementsOf(inputs, path);
        std::move(placed.begin(), placed.end(), std::back_inserter(inputs.placed));
    }
    if (!building.placements.empty()) placeOthers(inputs, building.placements);
    if (!inputs.placed.empty() && !inputs.others.empty() && !building.at)
        throw DataError(inputs.others.front() +
                        ": is placed by no file, and others are; give it a place by --at, or leave it out");
    if (building.at && !inputs.placed.empty() && inputs.others.empty())
        throw UsageError("--at is for models that no file places, and all of these are placed; leave it out");
    if (inputs.placed.empty() && inputs.others.empty())
        throw DataError(building.inputs.front() + ": places no model; give a file that does, or a model");
    return inputs;
}

/// The system of the map in which the city stands.
GeoReference mapOf(const CityBuilding & building, const Ground & ground, const Inputs & inputs) {
    if (!building.system.empty()) {
        const GeoReference map = CoordinateSystem::parse(building.system); // which knows its own WKT
        if (ground.isThere() && !CoordinateSystem::areSame(map, ground.reference()))
            throw UsageError("--system is another one than that of --terrain, " +
                             CoordinateSystem::describe(ground.reference()) + "; leave it out");
        return map;
    }
    if (ground.isThere()) return ground.reference();
    if (inputs.placed.empty()) return {};
    const ModelPlacement & first = inputs.placed.front();
    return CoordinateSystem::utm({first.longitude, first.latitude});
}

double placedHeight(const ModelPlacement & placement, const Ground & ground,
                    const ZMT::RASTER::MapPlace & place) {
    if (placement.altitudeMode == ModelPlacement::AM_Absolute) return placement.altitude;
    const double base = ground.heightAt(place, placement.model);
    return placement.altitudeMode == ModelPlacement::AM_RelativeToGround ? base + placement.altitude : base;
}

CityAssembly::Place placeOf(const ModelPlacement & placement, const CoordinateSystem & system,
                            const Ground & ground) {
    const auto axes = system.axesAt({placement.longitude, placement.latitude});
    if (!axes)
        throw DataError(placement.model +
                        ": stands where the map has no coordinates; choose another --system");
    CityAssembly::Place place;
    place.axes = *axes;
    place.height = placedHeight(placement, ground, axes->place);
    place.ground = ground.knownHeightAt(axes->place);
    place.orientation = CityAssembly::orientation(placement.heading, placement.tilt, placement.roll,
                                                  {placement.scale.x, placement.scale.z, placement.scale.y});
    return place;
}

void add(CityAssembly & city, const NBX::Model & model, const std::string & name, const std::string & path,
         const CityAssembly::Place & place) {
    city.add(model.scene, unsigned(std::min<std::uint64_t>(model.triangles, UINT32_MAX)), name,
             NBX::File::fileName(path), place);
}

CityAssembly assembled(const Inputs & inputs, const CityBuilding & building, const Ground & ground,
                       const GeoReference & map, ModelLibrary & library) {
    CityAssembly city;
    const Stage stage(L"read");
    Step reading("reading models", double(inputs.placed.size() + inputs.others.size()));
    std::optional<CoordinateSystem> system;
    if (!inputs.placed.empty()) system.emplace(map.wkt);
    for (const ModelPlacement & placement : inputs.placed) {
        const std::string name =
            placement.name.empty() ? NBX::File::baseName(placement.model) : placement.name;
        add(city, library.at(placement.model), name, placement.model, placeOf(placement, *system, ground));
        reading.goOn(double(city.size()));
    }
    const std::array<double, 3> at = building.at.value_or(std::array<double, 3>{0.0, 0.0, 0.0});
    for (const std::string & path : inputs.others) {
        const bool isOnGround = building.at && std::isnan(at[2]);
        const double height = isOnGround ? ground.heightAt({at[0], at[1]}, path) : at[2];
        CityAssembly::Place place =
            CityAssembly::onMap(at[0], at[1], height, map.isGeoreferenced ? map.unit : 1.0);
        if (building.at) place.ground = ground.knownHeightAt({at[0], at[1]});
        add(city, library.at(path), NBX::File::baseName(path), path, place);
        reading.goOn(double(city.size()));
    }
    reading.finish();
    return city;
}

/// The middles of models count: a house at the edge of a terrain stands on it.
void tellOutside(const CityAssembly & city, const Ground & ground, const std::string & terrain) {
    if (!ground.isThere()) return;
    std::size_t outside = 0;
    std::string first;
    const Point origin = city.origin();
    for (const CityModels::Model & model : city.table(origin)) {
        if (!model.box.isDefined()) continue;
        const Point middle = origin + (model.box.getLLF() + model.box.getURB()) * 0.5;
        if (!std::isnan(ground.knownHeightAt({middle.x, middle.z}))) continue;
        if (outside++ == 0) first = model.name;
    }
    if (outside > 0)
        writeError("warning: " + std::to_string(outside) + " of " + std::to_string(city.size()) +
                   " models stand where " + terrain + " has no ground, the first of them " + first +
                   "; check --at and --system, or the places");
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
        TexturedTriangleTree::enforceUniqueTextureParameterization(building.isUnique);
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
    /// The name of a file of the build that has no number yet.
    std::string numbered(const std::string & path, std::uint64_t number) const {
        for (const char * kind : {"opaque", "trans"})
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
        for (const char * kind : {"opaque", "trans"})
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

/// Textures of triangles of their own are drawn.
void checkDrawing() {
    const NBX::SO<NBX::OffscreenCanvasGL> canvas(new NBX::OffscreenCanvasGL(16, 16));
    if (!canvas->create())
        throw DataError(
            "--unique needs OpenGL, and no context could be made; install Mesa's software renderer");
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

std::string parseCitySystem(const std::string & text) {
    return parseSystemOf("--system", text);
}

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

std::array<double, 3> parseCityPlace(const std::string & text) {
    std::array<double, 3> place{0.0, 0.0, std::nan("")};
    char rest = 0;
    const int count = std::sscanf(text.c_str(), "%lf,%lf,%lf%c", &place[0], &place[1], &place[2], &rest);
    const bool hasTwo = count == 2 && std::count(text.begin(), text.end(), ',') == 1;
    const auto isPlace = [](double value) { return std::abs(value) <= 1e12; };
    if ((count != 3 && !hasTwo) || !isPlace(place[0]) || !isPlace(place[1]) ||
        (count == 3 && !isPlace(place[2])))
        throw UsageError("--at must be X,Y or X,Y,Z in map coordinates, each at most 1e12: " + text);
    if (hasTwo) place[2] = std::nan("");
    return place;
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
    if (building.isUnique) checkDrawing();
    const Inputs inputs = inputsOf(building);
    const Ground ground(building.terrain);
    const GeoReference map = mapOf(building, ground, inputs);
    ModelLibrary library(building.reading);
    const CityAssembly assembly = assembled(inputs, building, ground, map, library);
    checkOutputs(library.files(), {{"--out", building.out}});
    tellLostPrecision(assembly);
    tellOutside(assembly, ground, building.terrain);
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
    publish(*city, held, names, out);
    CityReport report = reportOf(*city, assembly, library, out);
    report.opaqueFill = shareOf(held.fill(names.paging(0, "opaque")));
    report.transparentFill = shareOf(held.fill(names.paging(0, "trans")));
    return report;
}
