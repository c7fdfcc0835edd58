// Files that place models come first, then the models, each read once, then their places on the map.

#include "cityinputs.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <utility>

#include <nbx/data/file.h>

#include "landscape/errors.h"
#include "landscape/step.h"
#include "landscape/terrainoptions.h"
#include "program/stage.h"

namespace {

using NBX::ModelPlacement;
using ZMT::CORE::CityAssembly;
using ZMT::CORE::CityModels;
using ZMT::RASTER::CoordinateSystem;
using ZMT::RASTER::GeoReference;
using Point = NBX::Vector3Base<double>;

std::string assumptionOf(const NBX::Model & model) {
    const bool hasAxis = model.upSource != NBX::ModelSource::Format;
    const bool hasUnit = model.unitSource != NBX::ModelSource::Format;
    char unit[64];
    std::snprintf(unit, sizeof unit, "a unit of %.10g m (--units)", model.metresPerUnit);
    const char axis = "xyz"[int(model.up)];
    std::string text = hasAxis ? "" : std::string(1, axis) + " up (--up)";
    if (!hasUnit) text += (text.empty() ? "" : ", ") + std::string(unit);
    return text.empty() ? text : text + ", as " + model.format + " files usually have";
}

/// The placements of a file, of `models` or of those that it names itself.
std::vector<ModelPlacement> placementsOf(PlacedModels & inputs, const std::string & path,
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
void placeOthers(PlacedModels & inputs, const std::string & path) {
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

double placedHeight(const ModelPlacement & placement, const ModelGround & ground,
                    const ZMT::RASTER::MapPlace & place) {
    if (placement.altitudeMode == ModelPlacement::AM_Absolute) return placement.altitude;
    const double base = ground.heightAt(place, placement.model);
    return placement.altitudeMode == ModelPlacement::AM_RelativeToGround ? base + placement.altitude : base;
}

CityAssembly::Place placeOf(const ModelPlacement & placement, const CoordinateSystem & system,
                            const ModelGround & ground) {
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

/// Of a model that no file places: where `--at` says, or its own coordinates. On a map in degrees it is as
/// large as the ground there.
CityAssembly::Place placeOfOther(const std::string & model, const CityInputs & inputs,
                                 const ModelGround & ground, const GeoReference & map) {
    if (map.isGeographic && !inputs.at)
        throw DataError(model +
                        ": has coordinates of its own, which are no degrees; give it a place by --at, "
                        "or tell their --system");
    const auto [x, y, z] = inputs.at.value_or(std::array<double, 3>{0.0, 0.0, 0.0});
    const bool isOnGround = inputs.at && std::isnan(z);
    const double height = isOnGround ? ground.heightAt({x, y}, model) : z;
    CityAssembly::Place place = CityAssembly::onMap(x, y, height, map.isGeoreferenced ? map.unit : 1.0);
    if (map.isGeographic) {
        const auto axes = CoordinateSystem(map.wkt).axesAt({x, y});
        if (!axes) throw DataError(model + ": --at is no place in degrees, or too close to a pole");
        place.axes = *axes;
    }
    if (inputs.at) place.ground = ground.knownHeightAt({x, y});
    return place;
}

void add(CityAssembly & city, const NBX::Model & model, const std::string & name, const std::string & path,
         const CityAssembly::Place & place) {
    city.add(model.scene, unsigned(std::min<std::uint64_t>(model.triangles, UINT32_MAX)), name,
             NBX::File::fileName(path), place);
}

} // namespace

std::string parseCitySystem(const std::string & text) {
    return parseSystemOf("--system", text);
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

void tellLeftOut(const std::string & path, const std::string & line) {
    writeError("warning: " + path + ": " + line);
}

double ModelGround::heightAt(const ZMT::RASTER::MapPlace & place, const std::string & model) const {
    if (!isThere())
        throw DataError(model + ": stands on the ground, which no file tells; give the heights by --terrain");
    const double known = knownHeightAt(place);
    if (std::isnan(known))
        throw DataError(model + ": stands where " + name +
                        " has no ground; give a terrain that reaches there");
    return known;
}

const NBX::Model & ModelLibrary::at(const std::string & path) {
    const auto known = models_.find(path);
    if (known != models_.end()) return known->second;
    NBX::Model model = NBX::ModelFile::read(path, options_);
    for (const std::string & line : model.leftOut)
        tellLeftOut(path, line);
    for (const NBX::ModelTexture & texture : model.textures)
        tell(path, texture);
    return models_.emplace(path, std::move(model)).first->second;
}

std::vector<std::string> ModelLibrary::assumptions() const {
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

std::vector<NamedFile> ModelLibrary::files() const {
    std::vector<NamedFile> files;
    for (const auto & [path, model] : models_) {
        files.push_back({"a model", path});
        for (const NBX::ModelTexture & texture : model.textures)
            if (!texture.path.empty()) files.push_back({"a texture", texture.path});
    }
    return files;
}

void ModelLibrary::tell(const std::string & path, const NBX::ModelTexture & texture) {
    if (!needsTextures_) return;
    if (!texture.failure.empty())
        tellLeftOut(path, "texture " + texture.name + " is left out: " + texture.failure);
    else
        textures_.insert(texture.path.empty() ? path + "#" + texture.name : texture.path);
}

PlacedModels placedModels(const CityInputs & inputs) {
    PlacedModels models;
    for (const std::string & path : inputs.inputs) {
        if (!NBX::PlacementFile::recognizes(path)) {
            models.others.push_back(path);
            continue;
        }
        std::vector<ModelPlacement> placed = placementsOf(models, path);
        std::move(placed.begin(), placed.end(), std::back_inserter(models.placed));
    }
    if (!inputs.placements.empty()) placeOthers(models, inputs.placements);
    if (!models.placed.empty() && !models.others.empty() && !inputs.at)
        throw DataError(models.others.front() +
                        ": is placed by no file, and others are; give it a place by --at, or leave it out");
    if (inputs.at && !models.placed.empty() && models.others.empty())
        throw UsageError("--at is for models that no file places, and all of these are placed; leave it out");
    if (models.placed.empty() && models.others.empty())
        throw DataError(inputs.inputs.front() + ": places no model; give a file that does, or a model");
    return models;
}

CityAssembly assembledCity(const PlacedModels & models, const CityInputs & inputs, const ModelGround & ground,
                           const GeoReference & map, ModelLibrary & library) {
    CityAssembly city;
    const Stage stage(L"read");
    Step reading("reading models", double(models.placed.size() + models.others.size()));
    std::optional<CoordinateSystem> system;
    if (!models.placed.empty()) system.emplace(map.wkt);
    for (const ModelPlacement & placement : models.placed) {
        const std::string name =
            placement.name.empty() ? NBX::File::baseName(placement.model) : placement.name;
        add(city, library.at(placement.model), name, placement.model, placeOf(placement, *system, ground));
        reading.goOn(double(city.size()));
    }
    for (const std::string & path : models.others) {
        const CityAssembly::Place place = placeOfOther(path, inputs, ground, map);
        add(city, library.at(path), NBX::File::baseName(path), path, place);
        reading.goOn(double(city.size()));
    }
    reading.finish();
    return city;
}

void tellOutside(const CityAssembly & city, const ModelGround & ground) {
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
                   " models stand where " + ground.name + " has no ground, the first of them " + first +
                   "; check --at and --system, or the places");
}
