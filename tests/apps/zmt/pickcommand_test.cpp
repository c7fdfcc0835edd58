#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "smallground.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

/// The slope of the ground, at map coordinates.
double slopeAt(double x, double y) {
    return 800.0 + (x - s_west) / 8.0 + (s_north - y) / 4.0;
}

/// A slope with a hole in the data around column 10, line 10.
SmallGeoTiff tiltedGround() {
    SmallGeoTiff tiff{s_width, s_height};
    for (unsigned line = 0; line < s_height; ++line)
        for (unsigned column = 0; column < s_width; ++column) {
            const bool isHole = std::abs(int(column) - 10) <= 2 && std::abs(int(line) - 10) <= 2;
            const double x = s_west + (column + 0.5) * s_cell, y = s_north - (line + 0.5) * s_cell;
            tiff.heights.push_back(isHole ? -9999.0F : float(slopeAt(x, y)));
        }
    tiff.noData = "-9999";
    return tiff;
}

class PickCommand : public ::testing::Test {
protected:
    RunResult pick(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"pick", "--terrain", terrain});
        return runProcess(ZMT_EXECUTABLE, arguments, folder);
    }
    /// The place that a run told; the height is not-a-number for an unknown one.
    struct Place {
        double x = 0.0, y = 0.0, height = 0.0;
    };
    static Place placeOf(const RunResult & run) {
        Place place;
        EXPECT_EQ(0, run.status) << run.errors;
        EXPECT_EQ(3, std::sscanf(run.output.c_str(), "%lf %lf %lf\n", &place.x, &place.y, &place.height))
            << run.output;
        return place;
    }
    static void expectOnSlope(const Place & place) {
        EXPECT_NEAR(slopeAt(place.x, place.y), place.height, 0.002);
    }

    RunFolder folder;
    const std::string terrain = folder.write("slope.tif", tiltedGround().encode());
};

TEST_F(PickCommand, TheMiddleOfTheMapIsBelowTheMiddleOfThePicture) {
    const Place place = placeOf(pick({"--view", "north", "--size", "101x101", "50,50"}));
    EXPECT_NEAR(s_west + s_width * s_cell / 2.0, place.x, 0.001);
    EXPECT_NEAR(s_north - s_height * s_cell / 2.0, place.y, 0.001);
    expectOnSlope(place);
}

TEST_F(PickCommand, PixelsCountFromTheUpperLeftCorner) {
    const std::vector<std::string> view{"--view", "north", "--size", "101x101"};
    const auto at = [&](const std::string & pixel) {
        std::vector<std::string> arguments = view;
        arguments.push_back(pixel);
        return placeOf(pick(arguments));
    };
    const Place northWest = at("45,42"), southEast = at("65,60");
    EXPECT_LT(northWest.x, southEast.x - 200.0);
    EXPECT_GT(northWest.y, southEast.y + 100.0);
    expectOnSlope(northWest);
    expectOnSlope(southEast);
}

TEST_F(PickCommand, AHoleInFlatGroundDoesNotMakeTheGroundUnknown) {
    SmallGeoTiff flat{9, 9};
    flat.heights.assign(81, 700.0F);
    flat.heights[0] = -9999.0F;
    flat.noData = "-9999";
    const RunResult run = runProcess(ZMT_EXECUTABLE,
                                     {"pick", "--terrain", folder.write("flat.tif", flat.encode()), "--view",
                                      "north", "--size", "33x33", "16,16"},
                                     folder);
    EXPECT_NEAR(700.0, placeOf(run).height, 0.001) << run.errors;
}

/// The middle of a picture shows what the eye is directed at, whatever its heights are multiplied by.
TEST_F(PickCommand, TheMiddleShowsTheAim) {
    const double x = s_west + 900.0, y = s_north - 500.0, height = slopeAt(x, y);
    const std::string view = "500300,3098000,4000,500900,3099500," + std::to_string(height);
    for (const char * exaggeration : {"1", "3.5"}) {
        const Place place =
            placeOf(pick({"--exaggeration", exaggeration, "--view", view, "--size", "33x21", "16,10"}));
        EXPECT_NEAR(x, place.x, 0.002);
        EXPECT_NEAR(y, place.y, 0.002);
        EXPECT_NEAR(height, place.height, 0.002);
    }
}

TEST_F(PickCommand, TheSkyIsNoHit) {
    const std::string upwards = "500300,3098000,4000,500900,3099500,9000";
    const RunResult text = pick({"--view", upwards, "640,360"});
    EXPECT_EQ(0, text.status) << text.errors;
    EXPECT_EQ("no hit\n", text.output);
    const RunResult json = pick({"--view", upwards, "--json", "640,360"});
    EXPECT_EQ(0, json.status) << json.errors;
    EXPECT_EQ(nlohmann::json::parse(R"({"hit": false})"), nlohmann::json::parse(json.output));
}

TEST_F(PickCommand, WritesAnObject) {
    const RunResult run = pick({"--view", "north", "--size", "101x101", "--json", "50,50"});
    EXPECT_EQ(0, run.status) << run.errors;
    const auto object = nlohmann::json::parse(run.output);
    EXPECT_EQ(8U, object.size());
    EXPECT_TRUE(object.at("hit"));
    EXPECT_NEAR(s_west + s_width * s_cell / 2.0, object.at("x").get<double>(), 1e-6);
    EXPECT_NEAR(s_north - s_height * s_cell / 2.0, object.at("y").get<double>(), 1e-6);
    EXPECT_NEAR(slopeAt(object.at("x"), object.at("y")), object.at("height").get<double>(), 1e-6);
    // A little to the east of the middle meridian of the zone.
    EXPECT_NEAR(87.0067, object.at("longitude").get<double>(), 1e-4);
    EXPECT_NEAR(28.0211, object.at("latitude").get<double>(), 1e-4);
    EXPECT_EQ("EPSG:32645", object.at("crs"));
    EXPECT_EQ("WGS 84 / UTM zone 45N", object.at("crs_name"));
}

TEST_F(PickCommand, NamesTheSystem) {
    const std::string north = pick({"--view", "north", "--size", "101x101", "50,50"}).output;
    EXPECT_NE(std::string::npos, north.find(" EPSG:32645\n")) << north;
    const RunResult other = pick({"--view", "north", "--crs", "EPSG:3857", "--size", "101x101", "50,50"});
    EXPECT_NE(std::string::npos, other.output.find(" EPSG:3857\n")) << other.errors;
    EXPECT_NEAR(87.0067 / 180.0 * M_PI * 6378137.0, placeOf(other).x, 100.0);
}

TEST_F(PickCommand, ARasterWithoutASystemHasNone) {
    SmallGeoTiff tiff = tiltedGround();
    tiff.isPlaced = false;
    const std::vector<std::string> pixel{"pick",   "--terrain", folder.write("bare.tif", tiff.encode()),
                                         "--view", "north",     "--size",
                                         "33x33",  "16,16"};
    const RunResult run = runProcess(ZMT_EXECUTABLE, pixel, folder);
    EXPECT_EQ(2, std::count(run.output.begin(), run.output.end(), ' ')) << run.output;
    std::vector<std::string> json = pixel, lonLat = pixel, crs = pixel;
    json.emplace_back("--json");
    const auto object = nlohmann::json::parse(runProcess(ZMT_EXECUTABLE, json, folder).output);
    for (const char * key : {"longitude", "latitude", "crs", "crs_name"})
        EXPECT_TRUE(object.at(key).is_null()) << key;
    lonLat.emplace_back("--lonlat");
    EXPECT_EQ(2, runProcess(ZMT_EXECUTABLE, lonLat, folder).status);
    crs.insert(crs.end(), {"--crs", "EPSG:32645"});
    EXPECT_EQ(1, runProcess(ZMT_EXECUTABLE, crs, folder).status);
}

/// What comes out goes in again.
TEST_F(PickCommand, TakesAndGivesLongitudeAndLatitude) {
    const std::string view = "87.003,28.01,4000,87.0067,28.0235,900";
    const RunResult run = pick({"--lonlat", "--view", view, "--size", "33x21", "16,10"});
    double longitude = 0.0, latitude = 0.0, height = 0.0;
    char system[16] = "";
    ASSERT_EQ(4, std::sscanf(run.output.c_str(), "%lf %lf %lf %15s", &longitude, &latitude, &height, system))
        << run.errors;
    EXPECT_STREQ("EPSG:4326", system);
    const RunResult known = pick({"--view", view, "--lonlat", "--size", "33x21", "--json", "16,10"});
    EXPECT_NEAR(longitude, nlohmann::json::parse(known.output).at("longitude").get<double>(), 1e-7);
    EXPECT_NEAR(latitude, nlohmann::json::parse(known.output).at("latitude").get<double>(), 1e-7);
    EXPECT_NEAR(
        height,
        slopeAt(nlohmann::json::parse(known.output).at("x"), nlohmann::json::parse(known.output).at("y")),
        0.002);
    // The aim lies at a height of its own, near the slope.
    EXPECT_NEAR(87.0067, longitude, 1e-3);
    EXPECT_NEAR(28.0235, latitude, 1e-3);
}

/// Longitude 0 and latitude 0 have no coordinates in the system of the slope.
TEST_F(PickCommand, TakesLongitudeAndLatitudeOfAPlaceThatIsLookedAt) {
    const RunResult run =
        pick({"--lonlat", "--view", "at:87.0067,28.0198,30,60,900", "--size", "33x21", "16,10"});
    double longitude = 0.0, latitude = 0.0;
    ASSERT_EQ(2, std::sscanf(run.output.c_str(), "%lf %lf", &longitude, &latitude)) << run.errors;
    EXPECT_NEAR(87.0067, longitude, 1e-3);
    EXPECT_NEAR(28.0198, latitude, 1e-3);
}

TEST_F(PickCommand, PlacesWithoutLongitudeAndLatitudeAreToldInMapCoordinates) {
    SmallGeoTiff tiff = tiltedGround();
    // Columns in the east lie beyond the globe.
    tiff.cell = 1e6;
    const std::string wide = folder.write("wide.tif", tiff.encode());
    const RunResult run = runProcess(
        ZMT_EXECUTABLE,
        {"pick", "--terrain", wide, "--lonlat", "--view", "north", "--size", "64x64", "50,32"}, folder);
    double x = 0.0, y = 0.0, height = 0.0;
    char system[16] = "";
    ASSERT_EQ(4, std::sscanf(run.output.c_str(), "%lf %lf %lf %15s", &x, &y, &height, system)) << run.errors;
    EXPECT_GT(x, 2e7);
    EXPECT_STREQ("EPSG:32645", system);
}

TEST_F(PickCommand, HolesHaveNoHeight) {
    const double x = s_west + 10.5 * s_cell, y = s_north - 10.5 * s_cell;
    const std::string place = std::to_string(x) + "," + std::to_string(y) + ",";
    const std::vector<std::string> view{"--view", place + "9000," + place + "0", "--size", "9x9", "4,4"};
    const RunResult text = pick(view);
    EXPECT_EQ(0, text.status) << text.errors;
    EXPECT_EQ("500336.000 3099664.000 unknown EPSG:32645\n", text.output);
    std::vector<std::string> arguments = view;
    arguments.emplace_back("--json");
    EXPECT_TRUE(nlohmann::json::parse(pick(arguments).output).at("height").is_null());

    arguments.emplace_back("--fill-voids");
    const auto filled = nlohmann::json::parse(pick(arguments).output);
    EXPECT_NEAR(slopeAt(x, y), filled.at("height").get<double>(), 1.0);
}

constexpr double s_cityX = s_west + 650.0, s_cityY = s_north - 450.0;

/// A prism of 3 by 2 by 5 m on the slope.
class PickCity : public PickCommand {
protected:
    std::string built(double height, const std::string & name = "p.city", const std::string & model = s_prism,
                      const std::string & system = "EPSG:32645") const {
        char place[100];
        std::snprintf(place, sizeof place, "%.3f,%.3f,%.3f", s_cityX, s_cityY, height);
        const RunResult run = runProcess(ZMT_EXECUTABLE,
                                         {"build", "city", model, "--up", "z", "--at", place, "--system",
                                          system, "--atlas-size", "64", "--out", folder.out(name)},
                                         folder);
        EXPECT_EQ(0, run.status) << run.errors;
        return folder.out(name);
    }
    RunResult run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "pick");
        return runProcess(ZMT_EXECUTABLE, arguments, folder);
    }
    /// From 40 m in the south-west, at a place of the prism so high above its foot.
    static std::string viewOf(double foot, double above) {
        char view[200];
        std::snprintf(view, sizeof view, "%.3f,%.3f,%.3f,%.3f,%.3f,%.3f", s_cityX - 28.0, s_cityY - 28.0,
                      foot + above + 10.0, s_cityX + 1.5, s_cityY + 1.0, foot + above);
        return view;
    }
    static nlohmann::json parsed(const RunResult & run) {
        EXPECT_EQ(0, run.status) << run.errors;
        return nlohmann::json::parse(run.output);
    }

    static inline const std::string s_prism = ZMT_DATA_DIR "/../tests/data/models/prism.obj";
    const double foot = slopeAt(s_cityX, s_cityY);
};

TEST_F(PickCity, NamesTheModelWithoutATerrain) {
    const std::vector<std::string> pick = {"--city", built(foot), "--view", viewOf(foot, 2.0),
                                           "--size", "33x21",     "16,10"};
    const RunResult text = run(pick);
    EXPECT_EQ(0, text.status) << text.errors;
    EXPECT_NE(std::string::npos, text.output.find(" EPSG:32645 prism of prism.obj\n")) << text.output;
    const Place place = placeOf(text);
    EXPECT_NEAR(s_cityX + 1.5, place.x, 2.0);
    EXPECT_NEAR(s_cityY + 1.0, place.y, 2.0);
    EXPECT_NEAR(foot + 2.5, place.height, 1.0);
    std::vector<std::string> json = pick;
    json.emplace_back("--json");
    const auto object = parsed(run(json));
    EXPECT_EQ(9U, object.size());
    EXPECT_NEAR(place.height, object.at("height").get<double>(), 0.001);
    const auto & model = object.at("model");
    EXPECT_EQ(folder.out("p.city"), model.at("city"));
    EXPECT_EQ("prism", model.at("name"));
    EXPECT_EQ("prism.obj", model.at("source"));
    EXPECT_NEAR(s_cityX, model.at("place").at(0).get<double>(), 1e-3);
    EXPECT_NEAR(s_cityY, model.at("place").at(1).get<double>(), 1e-3);
    EXPECT_NEAR(foot, model.at("place").at(2).get<double>(), 1e-3);
}

/// The level ground that stands in for a terrain is not drawn.
TEST_F(PickCity, NothingIsBesideAModelThatStandsAlone) {
    const std::vector<std::string> pick = {"--city", built(foot), "--view", viewOf(foot, 2.0),
                                           "--size", "64x64",     "1,63"};
    EXPECT_EQ("no hit\n", run(pick).output);
}

TEST_F(PickCity, TheNearerOfGroundAndModelIsTold) {
    const auto at = [&](double height, const std::string & pixel) {
        return parsed(pick(
            {"--city", built(height), "--view", viewOf(height, 2.0), "--size", "33x21", "--json", pixel}));
    };
    EXPECT_EQ("prism", at(foot, "16,10").at("model").at("name"));
    const auto ground = at(foot, "1,19");
    EXPECT_TRUE(ground.at("model").is_null());
    EXPECT_NEAR(slopeAt(ground.at("x"), ground.at("y")), ground.at("height").get<double>(), 1e-3);
    // It stands below the ground, and the eye above.
    const auto hidden = parsed(pick(
        {"--city", built(foot - 20.0), "--view", viewOf(foot, 2.0), "--size", "33x21", "--json", "16,10"}));
    EXPECT_TRUE(hidden.at("model").is_null());
    EXPECT_NEAR(slopeAt(hidden.at("x"), hidden.at("y")), hidden.at("height").get<double>(), 1e-3);
}

/// A model keeps its size where heights are stretched, and its height is told as it was built.
TEST_F(PickCity, HeightsOfModelsAreThoseThatTheyWereBuiltWith) {
    const std::string city = built(foot);
    const auto object = parsed(pick({"--city", city, "--exaggeration", "3", "--view", viewOf(foot, 0.5),
                                     "--size", "33x21", "--json", "16,10"}));
    ASSERT_FALSE(object.at("model").is_null()) << object;
    EXPECT_EQ("prism", object.at("model").at("name"));
    EXPECT_GT(object.at("height").get<double>(), foot - 0.1);
    EXPECT_LT(object.at("height").get<double>(), foot + 5.1);
    EXPECT_NEAR(foot, object.at("model").at("place").at(2).get<double>(), 1e-3);
}

TEST_F(PickCity, TheNearestOfSeveralCitiesIsTold) {
    std::filesystem::copy_file(s_prism, folder.in("tower.obj"));
    const std::string far = built(foot), near = built(foot + 6.0, "t.city", folder.in("tower.obj"));
    const auto named = [&](double above) {
        return parsed(run({"--city", far, "--city", near, "--view", viewOf(foot, above), "--size", "33x21",
                           "--json", "16,10"}))
            .at("model")
            .at("name");
    };
    EXPECT_EQ("prism", named(2.0));
    EXPECT_EQ("tower", named(8.0));
}

TEST_F(PickCity, NamesFromFilesStayInTheirLine) {
    std::filesystem::create_directories(folder.in("m"));
    const std::string model = folder.in("m/a\x1b[2J\nb.obj");
    std::filesystem::copy_file(s_prism, model);
    const RunResult text = run(
        {"--city", built(foot, "p.city", model), "--view", viewOf(foot, 2.0), "--size", "33x21", "16,10"});
    EXPECT_EQ(0, text.status) << text.errors;
    EXPECT_EQ(1, std::count(text.output.begin(), text.output.end(), '\n')) << text.output;
    EXPECT_EQ(std::string::npos, text.output.find('\x1b'));
}

TEST_F(PickCity, WhatDoesNotFitIsRefused) {
    const std::string city = built(foot);
    const auto refused = [&](const std::vector<std::string> & arguments, int status,
                             const std::string & words) {
        const RunResult result = run(arguments);
        EXPECT_EQ(status, result.status) << words;
        EXPECT_NE(std::string::npos, result.errors.find(words)) << result.errors;
        EXPECT_EQ(1U, result.errorLines().size()) << result.errors;
        EXPECT_EQ("", result.output);
    };
    refused({"5,5"}, 2, "--terrain is required, or --city");
    refused({"--city", city, "--exaggeration", "2", "5,5"}, 2, "--exaggeration needs a terrain");
    refused({"--city", city, "--fill-voids", "5,5"}, 2, "--fill-voids needs a terrain");
    refused({"--city", folder.in("none.city"), "5,5"}, 1, "none.city");
    refused({"--city", terrain, "5,5"}, 1, "is no city");
    refused({"--terrain", terrain, "--city", built(foot, "o.city", s_prism, "EPSG:32633"), "5,5"}, 1,
            "EPSG:32633");
}

TEST_F(PickCommand, TellsWhatIsWrong) {
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"12"},
        {"12,"},
        {"12,x"},
        {"-1,5"},
        {"1,-5"},
        {"1,5,7"},
        {"1 ,5"},
        {"99999999999,5"},
        {"--size", "64x32", "64,5"},
        {"--size", "64x32", "5,32"},
        {"--size", "0x32", "5,5"},
        {"--view", "sideways", "5,5"},
        {"--exaggeration", "0", "5,5"},
        {"--exaggeration", "nan", "5,5"},
        {"--crs", "EPSG:1", "5,5"},
        {"--crs", "EPSG:4326", "5,5"},
        {"--crs", "EPSG:2263", "5,5"},
        {"--lonlat", "--view", "87,91,0,87,28,0", "5,5"},
        {"--lonlat", "--view", "500000,3000000,0,87,28,0", "5,5"},
    };
    for (const auto & arguments : wrong) {
        const RunResult run = pick(arguments);
        EXPECT_EQ(2, run.status) << (arguments.empty() ? "" : arguments.back());
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_EQ("", run.output);
    }
    const RunResult missing =
        runProcess(ZMT_EXECUTABLE, {"pick", "--terrain", folder.in("none.tif"), "5,5"}, folder);
    EXPECT_EQ(1, missing.status);
    EXPECT_EQ(1U, missing.errorLines().size()) << missing.errors;
}

} // namespace
