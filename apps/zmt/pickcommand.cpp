#include "commands.h"
#include "systemjson.h"

#include <cstdio>
#include <memory>
#include <optional>

#include <nlohmann/json.hpp>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/streamedfiles.h"
#include "landscape/terraininput.h"
#include "landscape/viewpoint.h"

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

struct PickOptions {
    std::string terrain;
    TerrainReading reading;
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

/// The terrain at full resolution; no levels of detail are needed.
struct PickScene {
    explicit PickScene(const PickOptions & options)
        : input(readTerrain(options.terrain, options.reading, opened(options))), grid(input.grid),
          terrain(input.streamed) {
        if (!terrain) terrain = new ZMT::CORE::Terrain(grid.get(), nullptr);
        node->append(new ZMT::CORE::TerrainScaling(Point(1.0, options.exaggeration, 1.0)));
        node->append(terrain.get());
        const NBX::Bounds box = terrain->boundingBox();
        const auto scaled = [&](const Point & p) { return Point(p.x, p.y * options.exaggeration, p.z); };
        const ViewedGround ground{*grid, *terrain, input.reference, options.exaggeration, {}};
        const Viewpoint viewpoint = findViewpoint(options.view, ground);
        tellBuriedEye(viewpoint, ground);
        camera = makeCamera(viewpoint, NBX::Bounds(scaled(box.getLLF()), scaled(box.getURB())));
    }

    static StreamedFiles opened(const PickOptions & options) {
        LandscapeOptions landscape;
        landscape.terrain = options.terrain;
        landscape.fillVoids = options.reading.fillVoids;
        landscape.crs = options.reading.crs;
        checkLandscape(landscape);
        return StreamedFiles(landscape);
    }
    /// Whether there is a height, and not one that stands in for a missing one.
    bool isKnown(const Point & geo) const { return input.streamed || !input.raster->isUndef(geo.x, geo.z); }

    TerrainInput input;
    NBX::SO<ZMT::CORE::GridData> grid;
    NBX::SO<ZMT::CORE::Terrain> terrain;
    NBX::SO<NBX::SceneThing> node{new NBX::SceneThing};
    NBX::SO<NBX::Camera> camera;
};

NBX::SO<RayTracingTechnique> trace(const PickScene & scene, PictureSize size, Pixel pixel) {
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    const NBX::SO<RayTracingTechnique> technique(new RayTracingTechnique(scene.camera->rayThrough(
        pixel.column + 0.5, size.height - (pixel.row + 0.5), size.width, size.height)));
    technique->trace(engine.get(), scene.node.get());
    return technique;
}

void printMiss(bool json) {
    std::printf("%s\n", json ? "{\"hit\": false}" : "no hit");
}

/// What is told of a hit.
struct PickedPlace {
    Point geo;
    std::optional<LonLat> lonLat; ///< nothing where the system is not known
    bool hasHeight;
};

PickedPlace placeOf(const PickScene & scene, const Point & geo) {
    PickedPlace place{geo, {}, scene.isKnown(geo)};
    const std::string & wkt = scene.input.reference.wkt;
    if (!wkt.empty()) place.lonLat = CoordinateSystem(wkt).toLonLat({geo.x, geo.z});
    return place;
}

void printObject(const PickedPlace & place, const GeoReference & reference) {
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
    describeSystem(object, reference);
    std::printf("%s\n", object.dump().c_str());
}

/// The place, the height and the system.
void printLine(const PickedPlace & place, bool isLonLatWanted, const GeoReference & reference) {
    const bool isLonLat = isLonLatWanted && place.lonLat;
    if (isLonLat)
        std::printf("%.8f %.8f ", place.lonLat->longitude, place.lonLat->latitude);
    else
        std::printf("%.3f %.3f ", place.geo.x, place.geo.z);
    place.hasHeight ? std::printf("%.3f", place.geo.y) : std::printf("unknown");
    const std::string code = isLonLat ? "EPSG:4326" : CoordinateSystem::code(reference.wkt);
    const std::string & system = code.empty() ? reference.name : code;
    std::printf("%s%s\n", system.empty() ? "" : " ", system.c_str());
}

void runPick(const PickOptions & options) {
    checkExaggeration(options.exaggeration);
    const Pixel pixel = parsePixel(options.pixel, options.size);
    const PickScene scene(options);
    const auto technique = trace(scene, options.size, pixel);
    if (!technique->hasHit()) return printMiss(options.json);
    Point hit = technique->nearestHit().point;
    hit.y /= options.exaggeration;
    const Point geo = ZMT::CORE::GeoTransformation::nbx2geoTf(hit);
    const PickedPlace place = placeOf(scene, geo);
    if (options.json) return printObject(place, scene.input.reference);
    printLine(place, options.view.isLonLat, scene.input.reference);
}

} // namespace

void addPickCommand(CLI::App & app) {
    auto * command = app.add_subcommand(
        "pick", "Tells which place of a terrain a pixel shows: x, y, height, and the system of these map "
                "coordinates; with --lonlat longitude and latitude in the place of x and y.");
    const auto options = std::make_shared<PickOptions>();
    addTerrainOption(*command, options->terrain);
    addVoidOption(*command, options->reading.fillVoids);
    addCrsOption(*command, options->reading.crs);
    addViewOptions(*command, options->view, options->size);
    command->add_option("--exaggeration", options->exaggeration, "Factor of the heights")
        ->capture_default_str();
    command->add_flag("--json", options->json,
                      "Write an object with hit, x, y, height, longitude, latitude, crs and crs_name");
    command
        ->add_option(
            "PIXEL", options->pixel,
            "X,Y: column and row of the pixel, counted from 0 at the upper left corner. A pixel that "
            "shows no terrain gives 'no hit', with status 0")
        ->required();
    command->callback([options] { runPick(*options); });
}
