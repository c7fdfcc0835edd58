// A ray through the centre of a pixel of the picture that "render" would draw, against the terrain at full
// resolution, and against the models of cities; the nearer hit is told in map coordinates.

#include "commands.h"
#include "systemjson.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "landscape/citylayer.h"
#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/overlays.h"
#include "landscape/streamedfiles.h"
#include "landscape/terraininput.h"
#include "landscape/viewpoint.h"
#include "program/stage.h"

#include <nbx/engine/engine.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/scene/node/scenething.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

using NBX::RayTracingTechnique;
using ZMT::RASTER::CoordinateSystem;
using ZMT::RASTER::GeoReference;
using ZMT::RASTER::LonLat;
using Point = NBX::Vector3Base<double>;

constexpr double s_largestTolerance = 100.0;

struct PickOptions {
    std::string terrain;
    TerrainReading reading;
    std::vector<std::string> cities;
    std::vector<OverlayOptions> overlays;
    double tolerance = 3.0; ///< of features, in pixels
    View view;
    PictureSize size{1280, 720};
    double exaggeration = 1.0;
    bool json = false;
    std::string pixel;
};

struct Pixel {
    unsigned column, row; ///< from the upper left corner
};

Pixel parsePixel(const std::string & text, PictureSize size) {
    unsigned column = 0, row = 0;
    char rest = 0;
    const bool isPixel = text.find_first_of("+- ") == std::string::npos &&
                         std::sscanf(text.c_str(), "%6u,%6u%c", &column, &row, &rest) == 2;
    if (!isPixel || column >= size.width || row >= size.height)
        throw UsageError("PIXEL must be X,Y in the picture, from 0,0 to " + std::to_string(size.width - 1) +
                         "," + std::to_string(size.height - 1) + ": " + text);
    return {column, row};
}

/// The terrain at full resolution, and cities on it or alone; no levels of detail are needed.
struct PickScene {
    explicit PickScene(const PickOptions & options) : exaggeration(options.exaggeration) {
        LandscapeOptions landscape = landscapeOf(options);
        checkLandscape(landscape);
        const StreamedFiles streamed(landscape);
        for (const std::string & file : options.cities)
            cities.emplace_back(file, landscape.cities, streamed.city(file));
        options.terrain.empty() ? makeGround()
                                : takeTerrain(readTerrain(options.terrain, options.reading, streamed));
        for (const CityLayer & city : cities)
            city.checkSystem(reference, options.terrain.empty() ? &cities.front() : nullptr);
        placeCities(cities, *terrain, exaggeration);
        const NBX::Bounds box = terrain->boundingBox();
        const auto scaled = [&](const Point & p) { return Point(p.x, p.y * exaggeration, p.z); };
        NBX::Bounds models;
        for (const CityLayer & city : cities)
            models += city.box();
        overlays = Overlays(options.overlays, reference, extentOf(*grid), streamed);
        const ViewedGround ground{*grid,
                                  *terrain,
                                  reference,
                                  exaggeration,
                                  {},
                                  models,
                                  options.terrain.empty() ? cities.front().name() : ""};
        const Viewpoint viewpoint = findViewpoint(options.view, ground, options.size.aspect());
        tellBuriedEye(viewpoint, ground);
        camera = makeCamera(viewpoint, NBX::Bounds(scaled(box.getLLF()), scaled(box.getURB())));
    }

    static LandscapeOptions landscapeOf(const PickOptions & options) {
        LandscapeOptions landscape;
        landscape.terrain = options.terrain;
        landscape.fillVoids = options.reading.fillVoids;
        landscape.crs = options.reading.crs;
        landscape.cities.files = options.cities;
        landscape.overlays = options.overlays;
        landscape.exaggeration = options.exaggeration;
        return landscape;
    }
    void takeTerrain(const TerrainInput & input) {
        reference = input.reference;
        grid = input.grid;
        raster = input.streamed ? nullptr : input.raster;
        terrain = input.streamed;
        if (!terrain) terrain = new ZMT::CORE::Terrain(grid.get(), nullptr);
        node->append(new ZMT::CORE::TerrainScaling(Point(1.0, exaggeration, 1.0)));
        node->append(terrain.get());
    }
    /// Which no ray meets.
    void makeGround() {
        reference = cities.front().city().reference();
        grid = makeGroundBelow(cities);
        ZMT::CORE::GeoTransformation::setNBXOrigin(grid->origin());
        terrain = new ZMT::CORE::Terrain(grid.get(), nullptr);
    }
    static ZMT::RASTER::GeoExtent extentOf(const ZMT::CORE::GridData & grid) {
        const auto & heights = *grid.rasterData();
        return {heights.minX(), heights.minY(), heights.maxX(), heights.maxY()};
    }
    /// Whether the ground has a height, and not one that stands in for a missing one.
    bool isKnown(const Point & geo) const { return !raster || !raster->isUndef(geo.x, geo.z); }

    const double exaggeration;
    GeoReference reference;
    NBX::SO<ZMT::CORE::GridData> grid;
    NBX::SO<const ZMT::RASTER::RasterData> raster; ///< null where all heights are known
    NBX::SO<ZMT::CORE::Terrain> terrain;
    NBX::SO<NBX::SceneThing> node{new NBX::SceneThing}; ///< the terrain; empty without one
    std::vector<CityLayer> cities;
    Overlays overlays;
    NBX::SO<NBX::Camera> camera;
};

/// What is told of a hit.
struct PickedPlace {
    Point geo;
    bool hasHeight;
    std::optional<CityLayer::Hit> model;          ///< nothing for the ground
    std::optional<LonLat> lonLat = {};            ///< nothing where the system is not known
    std::vector<Overlays::Feature> features = {}; ///< of overlays, on the ground
};

/// The ground, as far as `nearest` does not lie in front of it.
std::optional<PickedPlace> groundAt(const PickScene & scene, const NBX::Ray & ray, double nearest) {
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    const NBX::SO<RayTracingTechnique> technique(new RayTracingTechnique(ray));
    if (!technique->trace(engine.get(), scene.node.get())) return {};
    if (technique->nearestHit().distance > nearest) return {};
    Point hit = technique->nearestHit().point;
    hit.y /= scene.exaggeration;
    const Point geo = ZMT::CORE::GeoTransformation::nbx2geoTf(hit);
    return PickedPlace{geo, scene.isKnown(geo), {}};
}

/// Nothing where the sky is seen.
std::optional<PickedPlace> trace(const PickScene & scene, PictureSize size, Pixel pixel) {
    const NBX::Ray ray = scene.camera->rayThrough(pixel.column + 0.5, size.height - (pixel.row + 0.5),
                                                  size.width, size.height);
    const auto model = nearestHit(scene.cities, ray);
    auto place = groundAt(scene, ray, model ? model->distance : HUGE_VAL);
    if (!place && model) place = PickedPlace{model->place, true, model};
    const std::string & wkt = scene.reference.wkt;
    if (place && !wkt.empty()) place->lonLat = CoordinateSystem(wkt).toLonLat({place->geo.x, place->geo.z});
    return place;
}

/// Those that the picture shows within `tolerance` pixels of a place on the ground.
std::vector<Overlays::Feature> featuresAt(const PickScene & scene, const PickOptions & options, Pixel pixel,
                                          const Point & geo) {
    const PictureSize size = options.size;
    return scene.overlays.featuresAt(
        *scene.camera, {pixel.column + 0.5, size.height - (pixel.row + 0.5), size.width, size.height}, geo,
        scene.exaggeration, options.tolerance);
}

void printMiss(bool json) {
    std::printf("%s\n", json ? "{\"hit\": false}" : "no hit");
}

nlohmann::ordered_json describeModel(const CityLayer::Hit & hit) {
    nlohmann::ordered_json object = {
        {"city", hit.layer->name()}, {"name", nullptr}, {"source", nullptr}, {"place", nullptr}};
    if (!hit.model) return object;
    const Point & place = hit.model->place;
    object["name"] = hit.model->name;
    object["source"] = hit.model->source;
    object["place"] = {place.x, place.z, place.y};
    return object;
}

nlohmann::ordered_json describeValue(const ZMT::RASTER::FieldValue & value) {
    if (const auto * whole = std::get_if<std::int64_t>(&value)) return *whole;
    if (const auto * number = std::get_if<double>(&value)) return *number;
    if (const auto * text = std::get_if<std::string>(&value)) return *text;
    return nullptr;
}

nlohmann::ordered_json describeFeature(const Overlays::Feature & feature) {
    nlohmann::ordered_json fields = nlohmann::ordered_json::object();
    const auto & known = feature.overlay->source()->fields();
    for (std::size_t i = 0; i < known.size(); ++i)
        fields[known[i].name] = describeValue(feature.picked.feature.values.at(i));
    return {{"overlay", feature.overlay->name()},
            {"id", feature.picked.feature.id},
            {"pixels", feature.picked.pixels},
            {"fields", fields}};
}

void printObject(const PickedPlace & place, const PickScene & scene) {
    const auto orNull = [](bool isThere, double value) {
        return isThere ? nlohmann::ordered_json(value) : nlohmann::ordered_json();
    };
    const bool isOnGlobe = place.lonLat.has_value();
    nlohmann::ordered_json object;
    object["hit"] = true;
    object["x"] = place.geo.x;
    object["y"] = place.geo.z;
    object["height"] = orNull(place.hasHeight, place.geo.y);
    object["longitude"] = orNull(isOnGlobe, isOnGlobe ? place.lonLat->longitude : 0.0);
    object["latitude"] = orNull(isOnGlobe, isOnGlobe ? place.lonLat->latitude : 0.0);
    describeSystem(object, scene.reference);
    if (!scene.cities.empty())
        object["model"] = place.model ? describeModel(*place.model) : nlohmann::ordered_json();
    if (!scene.overlays.empty()) {
        object["features"] = nlohmann::ordered_json::array();
        for (const Overlays::Feature & feature : place.features)
            object["features"].push_back(describeFeature(feature));
    }
    // Names in files may be of any bytes.
    std::printf("%s\n", object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

/// The place, the height and the system, and the model and the file that it came from.
void printLine(const PickedPlace & place, bool isLonLatWanted, const GeoReference & reference) {
    const bool isLonLat = isLonLatWanted && place.lonLat;
    if (isLonLat)
        std::printf("%.8f %.8f ", place.lonLat->longitude, place.lonLat->latitude);
    else
        std::printf("%.3f %.3f ", place.geo.x, place.geo.z);
    place.hasHeight ? std::printf("%.3f", place.geo.y) : std::printf("unknown");
    const std::string code = isLonLat ? "EPSG:4326" : CoordinateSystem::code(reference.wkt);
    const std::string & system = code.empty() ? reference.name : code;
    const auto * model = place.model ? place.model->model : nullptr;
    const std::string name = model ? " " + oneLine(model->name + " of " + model->source) : "";
    std::printf("%s%s%s\n", system.empty() ? "" : " ", system.c_str(), name.c_str());
}

/// A line for each, with what its fields hold.
void printFeatures(const PickedPlace & place) {
    for (const Overlays::Feature & feature : place.features) {
        const auto & fields = feature.overlay->source()->fields();
        std::string line = feature.overlay->name() + ": feature " + std::to_string(feature.picked.feature.id);
        for (std::size_t i = 0; i < fields.size(); ++i) {
            const std::string text = ZMT::CORE::VectorStyleSheet::textOf(feature.picked.feature.values.at(i));
            if (!text.empty()) line.append(", ").append(fields[i].name).append("=").append(text);
        }
        std::printf("%s\n", oneLine(line).c_str());
    }
}

void runPick(const PickOptions & options) {
    if (options.terrain.empty() && options.cities.empty())
        throw UsageError("--terrain is required, or --city");
    if (!(options.tolerance >= 0.0 && options.tolerance <= s_largestTolerance))
        throw UsageError("--tolerance must be a number of pixels from 0 to 100");
    const Pixel pixel = parsePixel(options.pixel, options.size);
    const PickScene scene(options);
    const Stage stage(L"pick");
    auto place = trace(scene, options.size, pixel);
    if (!place) return printMiss(options.json);
    if (!place->model) place->features = featuresAt(scene, options, pixel, place->geo);
    if (options.json) return printObject(*place, scene);
    printLine(*place, options.view.isLonLat, scene.reference);
    printFeatures(*place);
}

} // namespace

void addPickCommand(CLI::App & app) {
    auto * command = app.add_subcommand(
        "pick",
        "Tells which place of a terrain or of a city a pixel shows: x, y, height, and the system of "
        "these map coordinates; with --lonlat longitude and latitude in the place of x and y; of a "
        "city also the model and the file that it came from; and the features of overlays that lie there.");
    const auto options = std::make_shared<PickOptions>();
    addTerrainOption(*command, options->terrain)->required(false);
    addCityFilesOption(*command, options->cities);
    addOverlayOptions(*command, options->overlays);
    command
        ->add_option("--tolerance", options->tolerance, "Pixels within which features of overlays are named")
        ->capture_default_str();
    addVoidOption(*command, options->reading.fillVoids);
    addCrsOption(*command, options->reading.crs);
    addRedirectsOption(*command);
    addViewOptions(*command, options->view, options->size);
    command->add_option("--exaggeration", options->exaggeration, "Factor of the heights")
        ->capture_default_str();
    command->add_flag(
        "--json", options->json,
        "Write an object with hit, x, y, height, longitude, latitude, crs and crs_name; with "
        "--city also model, which has city, name, source and place, and is null for the ground; with "
        "--overlay also features, the top and nearest first, which have overlay, id, pixels and fields");
    command
        ->add_option(
            "PIXEL", options->pixel,
            "X,Y: column and row of the pixel, counted from 0 at the upper left corner. A pixel that "
            "shows nothing of them gives 'no hit', with status 0")
        ->required();
    command->footer(
        "Of a streaming terrain the finest tiles on the way of the view are read, for which a web "
        "server has 30 s.");
    command->callback([options] { runPick(*options); });
}
