// "--casters" of the light commands: cities as they were built, and models as "build city" reads them. Their
// map is that of the raster, in whatever unit, or the one that a file or "--system" tells.

#include "reliefcasters.h"

#include <cmath>
#include <cstdio>
#include <memory>

#include <CLI/CLI.hpp>

#include <nbx/container/sequence/nonpersistentarray.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>
#include <zmt/core/texturedtriangles/citymodels.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/heightunit.h>
#include <zmt/util/occlusion/lightcasters.h>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/streamedfiles.h"
#include "modeloptions.h"

namespace {

using ZMT::CORE::CityModels;
using ZMT::RASTER::CoordinateSystem;
using ZMT::RASTER::GeoReference;
using ZMT::RASTER::MapPlace;
using ZMT::UTIL::LightCasters;
using Bodies = std::vector<LightCasters::Body>;

bool isModelOrPlacement(const std::string & path) {
    return !isUrl(path) && (NBX::ModelFile::recognizes(path) || NBX::PlacementFile::recognizes(path));
}

/// The ground of a raster, in metres, between the four cells around a place of its map.
ModelGround::HeightAt heightsOf(const NBX::SO<ZMT::RASTER::RasterBand> & band, double unit) {
    return [band, unit](const MapPlace & place) {
        const double x = (place.x - band->minX()) / band->cellSizeX();
        const double y = (place.y - band->minY()) / band->cellSizeY();
        const double none = std::nan("");
        if (!(x >= 0.0 && y >= 0.0 && x <= band->cellsX() - 1.0 && y <= band->cellsY() - 1.0)) return none;
        const auto column = unsigned(x), row = unsigned(y);
        const unsigned width = column + 1 < band->cellsX() ? 2 : 1, height = row + 1 < band->cellsY() ? 2 : 1;
        float cells[4] = {};
        band->read(column, row, width, height, cells);
        const auto at = [&](unsigned dx, unsigned dy) {
            return double(cells[std::min(dy, height - 1) * width + std::min(dx, width - 1)]);
        };
        const double s = x - column, t = y - row;
        return unit * ((1.0 - t) * ((1.0 - s) * at(0, 0) + s * at(1, 0)) +
                       t * ((1.0 - s) * at(0, 1) + s * at(1, 1)));
    };
}

/// From one map to another; nothing where they are the same.
std::function<std::optional<MapPlace>(const MapPlace &)> wayTo(const GeoReference & map,
                                                               const GeoReference & from) {
    if (CoordinateSystem::areSame(map, from)) return nullptr;
    const auto source = std::make_shared<CoordinateSystem>(from.wkt);
    const auto goal = std::make_shared<CoordinateSystem>(map.wkt);
    return [source, goal](const MapPlace & place) -> std::optional<MapPlace> {
        const auto onGlobe = source->toLonLat(place);
        return onGlobe ? goal->fromLonLat(*onGlobe) : std::nullopt;
    };
}

/// Puts bodies into the cells of a raster.
class CasterCollection {
public:
    CasterCollection(const ZMT::RASTER::RasterFile & heights, double exaggeration)
        : raster_(heights.path()), reference_(heights.reference()) {
        const auto band = heights.band();
        frame_.grid = band->grid();
        frame_.heightUnit = ZMT::RASTER::HeightUnit::metres(heights.heightUnit()).value_or(1.0);
        frame_.exaggeration = exaggeration;
        frame_.groundAt = heightsOf(band, frame_.heightUnit);
    }

    void addCity(const std::string & locator) {
        const NBX::SO<CityModels> city =
            isUrl(locator) ? CityModels::read(fetchCity(locator), locator) : CityModels::load(locator);
        add(LightCasters::bodiesOf(*city), city->reference(), shownName(locator));
    }
    void addModels(const CityInputs & inputs) {
        const PlacedModels models = placedModels(inputs);
        const GeoReference map = inputs.system.empty() ? reference_ : CoordinateSystem::parse(inputs.system);
        const auto toMap = wayTo(reference_, map);
        const ModelGround ground{raster_, map, [this, toMap](const MapPlace & place) {
                                     const auto onMap = toMap ? toMap(place) : place;
                                     return onMap ? frame_.groundAt(*onMap) : std::nan("");
                                 }};
        ModelLibrary library(inputs.reading, false);
        add(LightCasters::bodiesOf(assembledCity(models, inputs, ground, map, library)), map,
            "the models of --casters");
        for (const std::string & line : library.assumptions())
            std::printf("assumed: %s\n", line.c_str());
    }
    NBX::SO<NBX::PolygonSet> triangles() const {
        const NBX::NonPersistentArray<NBX::SO<NBX::PolygonSet>> sets(sets_);
        return NBX::PolygonSetTool::mergePolygonSets(&sets);
    }

private:
    void add(const Bodies & bodies, const GeoReference & map, const std::string & name) {
        frame_.toMap = wayTo(reference_, map);
        tellBeside(bodies, name);
        sets_.push_back(LightCasters::inCells(bodies, frame_));
    }
    /// Of bodies whose middle has no ground below.
    void tellBeside(const Bodies & bodies, const std::string & name) const {
        std::size_t all = 0, beside = 0;
        for (const LightCasters::Body & body : bodies) {
            if (body.corners.empty()) continue;
            ++all;
            const LightCasters::Point middle = body.middle();
            const auto onMap = frame_.toMap ? frame_.toMap({middle.x, middle.z})
                                            : std::optional(MapPlace{middle.x, middle.z});
            beside += !onMap || std::isnan(frame_.groundAt(*onMap)) ? 1 : 0;
        }
        if (beside > 0)
            writeError("warning: " + name + ": " + std::to_string(beside) + " of " + std::to_string(all) +
                       " models stand where " + raster_ +
                       " has no ground; check --at and --system, or the places");
    }

    std::string raster_;
    GeoReference reference_;
    LightCasters::Frame frame_;
    std::vector<NBX::SO<NBX::PolygonSet>> sets_;
};

} // namespace

void addCasterOptions(CLI::App & command, CityInputs & casters) {
    addFilesOption(
        command, "--casters", casters.inputs,
        "Buildings that shade the ground: a city, also at a URL, a model, or a KML or KMZ file with "
        "the places of models; may be repeated");
    command.add_option("--placements", casters.placements,
                       "KML or KMZ file with the places of the models of --casters");
    addParsedOption(command, "--at", casters.at, parseCityPlace,
                    "Map coordinates of models that no file places, and their height in metres; without a "
                    "height they stand on the ground, and without the option where their own coordinates say")
        ->type_name("X,Y[,Z]");
    addParsedOption(command, "--system", casters.system, parseCitySystem,
                    "Coordinate system of these, in metres, such as EPSG:32633; without it that of RASTER")
        ->type_name("EPSG|WKT|PROJ");
    addModelAxisOptions(command, casters.reading);
}

std::vector<NamedFile> casterFiles(const CityInputs & casters) {
    std::vector<NamedFile> files = {{"--placements", casters.placements}};
    bool hasModels = false;
    for (const std::string & path : casters.inputs) {
        files.push_back({"--casters", path});
        hasModels = hasModels || isModelOrPlacement(path);
    }
    const bool tellsPlaces = casters.at || !casters.placements.empty() || !casters.system.empty() ||
                             casters.reading.up || casters.reading.metresPerUnit;
    if (tellsPlaces && !hasModels)
        throw UsageError(
            "--at, --placements, --system, --up and --units are for models; name some by --casters");
    return files;
}

NBX::SO<NBX::PolygonSet> readCasters(const CityInputs & casters, const ZMT::RASTER::RasterFile & heights,
                                     double exaggeration) {
    if (casters.inputs.empty()) return nullptr;
    CasterCollection collection(heights, exaggeration);
    CityInputs models = casters;
    models.inputs.clear();
    for (const std::string & path : casters.inputs) {
        if (isModelOrPlacement(path))
            models.inputs.push_back(path);
        else
            collection.addCity(path);
    }
    if (!models.inputs.empty()) collection.addModels(models);
    return collection.triangles();
}
