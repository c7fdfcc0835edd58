#include "citypictures.h"

#include <map>

#include <nbx/data/file.h>
#include <nbx/io/modelfile.h>
#include <nbx/io/modelplacement.h>
#include <zmt/core/texturedtriangles/cityassembly.h>
#include <zmt/raster/gdal/coordinatesystem.h>

#include "seededcity.h"

namespace {

using NBX::SceneThing;
using NBX::SO;
using ZMT::CORE::CityAssembly;
using V = NBX::Vector3Base<double>;

/// From where the nearest place of `box` is `distance` away, on the way from its middle along `direction`.
V placeAt(const NBX::Bounds & box, const V & direction, double distance) {
    V place = box.center();
    for (double step = 4096.0; step > 1e-3; step /= 2.0) {
        const V farther = place + direction * step;
        const V inside(std::clamp(farther.x, box.getLLF().x, box.getURB().x),
                       std::clamp(farther.y, box.getLLF().y, box.getURB().y),
                       std::clamp(farther.z, box.getLLF().z, box.getURB().z));
        if ((farther - inside).length() < distance) place = farther;
    }
    return place;
}

/// Absolute heights alone.
SO<SceneThing> placedModels(const std::string & kml) {
    const NBX::ModelPlacements placements = NBX::PlacementFile::read(kml);
    const auto & first = placements.models.at(0);
    const ZMT::RASTER::CoordinateSystem system(
        ZMT::RASTER::CoordinateSystem::utm({first.longitude, first.latitude}).wkt);
    std::map<std::string, NBX::Model> models;
    CityAssembly city;
    for (const NBX::ModelPlacement & placement : placements.models) {
        if (models.count(placement.model) == 0)
            models[placement.model] = NBX::ModelFile::read(placement.model);
        CityAssembly::Place place;
        place.axes = *system.axesAt({placement.longitude, placement.latitude});
        place.height = placement.altitude;
        place.orientation =
            CityAssembly::orientation(placement.heading, placement.tilt, placement.roll,
                                      {placement.scale.x, placement.scale.z, placement.scale.y});
        const NBX::Model & model = models[placement.model];
        city.add(model.scene, unsigned(model.triangles), placement.name, placement.model, place);
    }
    return city.scene(city.origin());
}

} // namespace

/// Near by it has the source textures, in the street both.
TEST_F(CityPictures, ASeededCityLooksLikeItsModels) {
    const SeededCity city(5, true);
    const SO<SceneThing> trees = treesOf(city.all(), {40.0, 256}), sources = sourcesOf(city.all());
    const V m = SeededCity::middle();
    expectAlike(trees, sources, {"near", {12, 4, -12}, {12, 4, 0}}, s_near);
    expectAlike(trees, sources, {"street", {-4, 3, 19}, {60, 5, 19}}, s_near);
    expectAlike(trees, sources, {"reference", {m.x, 20, -48.5}, m}, s_atDistance);
    expectAlike(trees, sources, {"above", {m.x, 70, m.z - 1}, m}, s_atDistance);
    expectAlike(trees, sources, {"far", {m.x, 80, -200}, m}, s_farAway);
}

TEST_F(CityPictures, SoItDoesWithTexelsOfItsOwnForEveryTriangle) {
    const SeededCity city(6, true);
    const SO<SceneThing> trees = treesOf(city.all(), {40.0, 256, Tree::TextureFormatRGBA8, true});
    const SO<SceneThing> sources = sourcesOf(city.all());
    const V m = SeededCity::middle();
    expectAlike(trees, sources, {"near", {12, 4, -12}, {12, 4, 0}}, s_near);
    expectAlike(trees, sources, {"reference", {m.x, 20, -48.5}, m}, s_atDistance);
    expectAlike(trees, sources, {"behind", {90, 30, 120}, m}, s_atDistance);
}

/// What the formats lose: bits, colours, and what blocks of 4 by 4 texels do not hold. Glass and leaves are
/// RGBA8 in all of them, and there is a report that says so.
TEST_F(CityPictures, EveryFormatShowsTheCity) {
    const SeededCity city(7, true);
    const SO<SceneThing> sources = sourcesOf(city.all());
    const struct {
        const char * name;
        Tree::TextureFormat format;
        double near, atDistance;
    } formats[] = {{"rgba8", Tree::TextureFormatRGBA8, s_near, s_atDistance},
                   {"luminance", Tree::TextureFormatLuminance8, s_near, s_atDistance},
                   {"rgba5551", Tree::TextureFormatRGBA5551, s_near, s_atDistance},
                   {"dxt1", Tree::TextureFormatDXT1, 0.95, s_atDistance},
                   {"jpeg", Tree::TextureFormatJPEG, 0.95, s_atDistance}};
    const V m = SeededCity::middle();
    for (const auto & [name, format, near, atDistance] : formats) {
        const SO<SceneThing> trees = treesOf(city.all(), {40.0, 256, format});
        expectAlike(trees, sources, {name + std::string("_near"), {17, 4, -12}, {17, 4, 0}}, near);
        expectAlike(trees, sources, {name + std::string("_reference"), {m.x, 20, -48.5}, m}, atDistance);
        const bool isOther = format != Tree::TextureFormatRGBA8;
        EXPECT_EQ(reports.size(), isOther ? 1U : 0U) << name << reports;
        reports.clear();
    }
}

/// It takes seconds: a building of 3083 triangles whose textures repeat.
TEST_F(CityPictures, TheTestTownLooksLikeItsModel) {
    NBX::ModelOptions options;
    options.up = NBX::ModelUp::Z;
    const SO<SceneThing> town =
        NBX::ModelFile::read(ZMT_DATA_DIR "/testtown/testtown_lod3.obj", options).scene;
    const double distance = 40.0;
    const SO<SceneThing> trees = treesOf(town, {distance, 512}), sources = sourcesOf(town);
    const NBX::Bounds box = town->boundingBox(nullptr);
    const auto view = [&](const char * name, const V & direction, double away) {
        return View{name, placeAt(box, direction, away * distance), box.center()};
    };
    expectAlike(trees, sources, view("near", {-1.0, 0.2, 0.2}, 0.1), s_near);
    expectAlike(trees, sources, view("reference", {-1.0, 0.2, 0.2}, 1.01), s_atDistance);
    expectAlike(trees, sources, view("above", {0.1, 1.0, -0.1}, 1.01), s_farAway);
    expectAlike(trees, sources, view("far", {-1.0, 0.2, -0.3}, 3.0), s_atDistance);
}

/// Its ballast, of texels that all differ, does not come out in the same pixels from afar.
TEST_F(CityPictures, APartOfTheRailwaySceneLooksLikeItsModels) {
    const SO<SceneThing> scene = placedModels(ZMT_DATA_DIR "/../tests/data/railway/railway.kml");
    const double distance = 20.0;
    const SO<SceneThing> trees = treesOf(scene, {distance, 512}), sources = sourcesOf(scene);
    const NBX::Bounds box = scene->boundingBox(nullptr);
    for (const auto & [away, similarity] : {std::pair(0.2, s_near), {1.01, s_atDistance}, {4.0, 0.88}})
        expectAlike(trees, sources,
                    {"away" + std::to_string(int(10.0 * away)),
                     placeAt(box, {0.4, 0.6, -1.0}, away * distance), box.center()},
                    similarity);
}

/// The whole of it: ZMT_RAILWAY_SCENE is the path of its KML.
TEST_F(CityPictures, TheRailwaySceneLooksLikeItsModels) {
    const char * kml = std::getenv("ZMT_RAILWAY_SCENE");
    if (!kml || !*kml) GTEST_SKIP() << "ZMT_RAILWAY_SCENE names no KML";
    const SO<SceneThing> scene = placedModels(kml);
    const double distance = 100.0;
    const SO<SceneThing> trees = treesOf(scene, {distance, 1024}), sources = sourcesOf(scene);
    reports.clear();
    const NBX::Bounds box = scene->boundingBox(nullptr);
    const V middle = box.center();
    const auto view = [&](const char * name, const V & direction, double away) {
        return View{name, placeAt(box, direction, away * distance), middle};
    };
    expectAlike(trees, sources, view("reference", {0.4, 0.6, -1.0}, 1.01), s_atDistance);
    expectAlike(trees, sources, view("above", {0.1, 1.0, -0.1}, 1.01), s_atDistance);
    expectAlike(trees, sources, view("far", {-1.0, 0.4, -0.3}, 4.0), s_atDistance);
    expectAlike(trees, sources, {"near", middle + V(-20, 10, -20), middle}, s_near);
    expectAlike(trees, sources, {"street", middle + V(-120, 2, 10), middle + V(0, 2, 10)}, s_near);
}
