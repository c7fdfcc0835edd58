// Streaming terrains and textures, as a user of the program builds and looks at them.

#include <cmath>
#include <cstdio>
#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <nbx/image/image.h>
#include <nbx/math/color.h>
#include <nbx/object/stringutils.h>

#include "support/imagecompare.h"
#include "support/scriptedhttpserver.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

namespace fs = std::filesystem;

constexpr double s_cell = 32.0, s_west = 500000.0, s_north = 3100000.0;
const std::string s_everest = ZMT_DATA_DIR "/../tests/data/everest_heights.tif";
const std::string s_everestImage = ZMT_DATA_DIR "/../tests/data/everest_image.tif";

/// A slope of `width` by `height` cells, higher to the east and to the south; flat where it is `level`.
SmallGeoTiff slope(unsigned width, unsigned height, double rise = 4.0) {
    SmallGeoTiff tiff{width, height};
    for (unsigned line = 0; line < height; ++line)
        for (unsigned column = 0; column < width; ++column)
            tiff.heights.push_back(float(800.0 + rise * column + 2.0 * rise * line));
    return tiff;
}

class Streaming : public ::testing::Test {
protected:
    RunResult zmt(const std::vector<std::string> & arguments, const RunLimits & limits = {}) const {
        return runProcess(ZMT_EXECUTABLE, arguments, folder, limits);
    }
    /// Builds `name` with these arguments; the result is its path.
    std::string built(const std::string & kind, const std::vector<std::string> & arguments,
                      const std::string & name) const {
        std::vector<std::string> all = {"build", kind};
        all.insert(all.end(), arguments.begin(), arguments.end());
        all.push_back(folder.out(name));
        const RunResult run = zmt(all);
        EXPECT_EQ(0, run.status) << run.errors;
        return folder.out(name);
    }
    NBX::SO<NBX::Image> rendered(std::vector<std::string> arguments, const std::string & name) const {
        arguments.insert(arguments.begin(), "render");
        arguments.insert(arguments.end(), {"--size", "200x160", "--out", folder.out(name), "--stats",
                                           folder.out("stats.json")});
        const RunResult run = zmt(arguments);
        EXPECT_EQ(0, run.status) << run.errors;
        return readPng(folder.out(name));
    }
    static void expectAlike(const NBX::SO<NBX::Image> & a, const NBX::SO<NBX::Image> & b, double share) {
        ASSERT_TRUE(a && b);
        EXPECT_LE(compareImages(*a, *b, 3.0).share, share);
    }
    nlohmann::json stats() const { return nlohmann::json::parse(readWhole(folder.out("stats.json"))); }

    RunFolder folder;
};

TEST_F(Streaming, ATerrainIsBuiltInTheSystemThatIsNamed) {
    const std::string raster = folder.write("slope.tif", slope(41, 29).encode());
    const std::string terrain =
        built("terrain", {raster, "--crs", "EPSG:3857", "--lighting", "none"}, "t.ztt");
    const std::string output = zmt({"info", terrain}).output;
    EXPECT_NE(output.find("WGS 84 / Pseudo-Mercator (EPSG:3857)"), std::string::npos) << output;
    const RunResult pick = zmt({"pick", "--terrain", terrain, "--view", "north", "--json", "640,360"});
    EXPECT_EQ("EPSG:3857", nlohmann::json::parse(pick.output).at("crs")) << pick.errors;
    EXPECT_NEAR(87.0, nlohmann::json::parse(pick.output).at("longitude").get<double>(), 0.02);

    for (const auto & wrong : {std::vector<std::string>{"build", "terrain", raster, folder.out("u.ztt"),
                                                        "--merge", terrain, "--crs", "EPSG:32645"},
                               {"pick", "--terrain", terrain, "--crs", "EPSG:32645", "1,1"}}) {
        const RunResult run = zmt(wrong);
        EXPECT_EQ(2, run.status) << run.errors;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
    }
}

TEST_F(Streaming, PlacesMayBeLongitudeAndLatitude) {
    const std::string raster = folder.write("slope.tif", slope(41, 29).encode());
    const std::string terrain = built("terrain", {raster, "--lighting", "none"}, "t.ztt");
    const std::vector<std::string> view = {"--lonlat", "--view", "87.005,28.015,4000,87.0067,28.0198,900"};
    const auto picked = [&](const std::string & path) {
        std::vector<std::string> all = {"pick", "--terrain", path, "640,360"};
        all.insert(all.end(), view.begin(), view.end());
        const RunResult run = zmt(all);
        double longitude = 0.0, latitude = 0.0;
        EXPECT_EQ(2, std::sscanf(run.output.c_str(), "%lf %lf", &longitude, &latitude)) << run.errors;
        return std::pair(longitude, latitude);
    };
    EXPECT_NEAR(picked(raster).first, picked(terrain).first, 1e-6);
    EXPECT_NEAR(picked(raster).second, picked(terrain).second, 1e-6);
    EXPECT_NEAR(87.0067, picked(terrain).first, 1e-3);
}

/// Heights from the ground are those of the finest tiles, which are read for them.
TEST_F(Streaming, AViewMayCountFromTheGround) {
    const std::string raster = folder.write("slope.tif", slope(41, 29).encode());
    const std::string terrain = built("terrain", {raster, "--lighting", "none"}, "t.ztt");
    for (const char * view : {"at:500700,3099600,30,40,900", "500300,3099300,+400,500700,3099600,+0"}) {
        const auto picked = [&](const std::string & path) {
            const RunResult run = zmt({"pick", "--terrain", path, "--view", view, "640,360"});
            double x = 0.0, y = 0.0, height = 0.0;
            EXPECT_EQ(3, std::sscanf(run.output.c_str(), "%lf %lf %lf", &x, &y, &height)) << run.errors;
            EXPECT_NEAR(500700.0, x, 5.0);
            EXPECT_NEAR(3099600.0, y, 5.0);
            return height;
        };
        EXPECT_NEAR(picked(raster), picked(terrain), 0.01) << view;
    }
    const RunResult buried =
        zmt({"pick", "--terrain", terrain, "--view", "500700,3099600,1,500700,3099900,1", "640,360"});
    EXPECT_NE(std::string::npos, buried.errors.find("m under the ground")) << buried.errors;
}

TEST_F(Streaming, InfoTellsWhatATerrainIs) {
    const std::string raster = folder.write("slope.tif", slope(41, 29).encode());
    const std::string terrain = built("terrain", {raster, "--lighting", "none"}, "t.ztt");
    const std::string output = zmt({"info", terrain}).output;
    EXPECT_NE(output.find("streaming terrain"), std::string::npos) << output;
    // A tile is not wider than the raster.
    EXPECT_NE(output.find("tiles of 17 by 17 heights in 3 levels"), std::string::npos) << output;
    EXPECT_NE(output.find("light:      none"), std::string::npos) << output;
    EXPECT_NE(output.find("WGS 84 / UTM zone 45N"), std::string::npos) << output;
    // To the samples of the root around what is defined, four cells apart.
    EXPECT_NE(output.find("x:          500016 to 501456"), std::string::npos) << output;
    EXPECT_NE(output.find("y:          3099088 to 3100144"), std::string::npos) << output;
    EXPECT_NE(output.find("heights:    800 to 1184"), std::string::npos) << output;
}

TEST_F(Streaming, PickedHeightsAreThoseOfTheRaster) {
    const std::string raster = folder.write("slope.tif", slope(61, 47).encode());
    const std::string terrain = built("terrain", {raster, "--lighting", "none"}, "t.ztt");
    for (const char * pixel : {"50,50", "42,44", "60,57"}) {
        const auto place = [&](const std::string & path) {
            const RunResult run =
                zmt({"pick", "--terrain", path, "--view", "500900,3099300,9000,500901,3099301,900", "--size",
                     "101x101", "--json", pixel});
            EXPECT_EQ(0, run.status) << run.errors;
            return nlohmann::json::parse(run.output);
        };
        const nlohmann::json expected = place(raster), actual = place(terrain);
        ASSERT_TRUE(actual.value("hit", false)) << actual;
        const double unit = 61.0 * 4.0 * 3.0 / 65534.0;
        EXPECT_NEAR(expected["height"].get<double>(), actual["height"].get<double>(), 2.0 * unit);
        EXPECT_NEAR(expected["x"].get<double>(), actual["x"].get<double>(), 0.1);
        EXPECT_NEAR(expected["y"].get<double>(), actual["y"].get<double>(), 0.1);
    }
}

TEST_F(Streaming, TerrainAndTextureShowWhatRasterAndImageShow) {
    const std::string terrain = built("terrain", {s_everest, "--lighting", "none"}, "t.ztt");
    const std::string texture = built("texture", {s_everestImage, "--terrain", terrain}, "t.zts");
    const std::vector<std::string> view = {"--view",           "484500,3084000,12500,484500,3091000,5000",
                                           "--geometry-error", "1",
                                           "--texture-error",  "1"};
    const auto picture = [&](const std::string & heights, const std::string & image,
                             const std::string & name) {
        std::vector<std::string> arguments = {"--terrain", heights, "--image", image};
        arguments.insert(arguments.end(), view.begin(), view.end());
        return rendered(arguments, name);
    };
    const auto raster = picture(s_everest, s_everestImage, "raster.png");
    const auto streamed = picture(terrain, s_everestImage, "terrain.png");
    // The voids of the raster are holes of the terrain.
    expectAlike(streamed, raster, 0.15);
    expectAlike(picture(terrain, texture, "both.png"), streamed, 0.07);
    EXPECT_TRUE(stats()["complete"].get<bool>());
    EXPECT_EQ(stats()["missing_tiles"].get<int>(), 0);
    EXPECT_GT(stats()["read_bytes"].get<int>(), 0);
    expectAlike(picture(s_everest, texture, "texture.png"), raster, 0.07);
}

TEST_F(Streaming, FilesAreTheSameForAnyNumberOfThreads) {
    const auto bytes = [&](const std::string & threads) {
        const std::string terrain =
            built("terrain", {s_everest, "--level", "5", "--threads", threads}, "t" + threads + ".ztt");
        const std::string texture =
            built("texture", {s_everestImage, "--terrain", terrain, "--tile", "64", "--threads", threads},
                  "t" + threads + ".zts");
        return readWhole(terrain) + readWhole(texture);
    };
    const std::string one = bytes("1");
    EXPECT_GT(one.size(), 10000U);
    EXPECT_TRUE(one == bytes("3"));
}

TEST_F(Streaming, LightStandsBehindTheTiles) {
    const std::string raster = folder.write("slope.tif", slope(80, 60, 16.0).encode());
    const auto brightness = [&](const std::string & terrain, const std::vector<std::string> & more) {
        std::vector<std::string> arguments = {"--terrain", terrain, "--view", "north"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const auto picture = rendered(arguments, "light.png");
        const NBX::Color color = picture->getColor(100, 80);
        return color[0] + color[1] + color[2];
    };
    // The ground falls to the north-west.
    const std::string lit = built("terrain", {raster, "--light", "315,45,0.1"}, "lit.ztt");
    const std::string dark = built("terrain", {raster, "--light", "135,45,0.1"}, "dark.ztt");
    EXPECT_GT(brightness(lit, {}), brightness(dark, {}) * 1.3);
    EXPECT_NE(zmt({"info", lit}).output.find("light:      baked"), std::string::npos);
    const RunResult refused =
        zmt({"render", "--terrain", lit, "--light", "90,45", "--out", folder.out("x.png")});
    EXPECT_EQ(2, refused.status);
    EXPECT_NE(refused.errors.find("is baked"), std::string::npos) << refused.errors;

    const std::string normals = built("terrain", {raster, "--lighting", "normals"}, "normals.ztt");
    EXPECT_NE(zmt({"info", normals}).output.find("light:      normals"), std::string::npos);
    EXPECT_GT(brightness(normals, {"--light", "315,45,0.1"}),
              brightness(normals, {"--light", "135,45,0.1"}) * 1.3);
}

TEST_F(Streaming, MergedRastersLieAboveTheOldTerrain) {
    const std::string west = folder.write("west.tif", slope(40, 30, 0.0).encode());
    SmallGeoTiff content = slope(40, 30, 0.0);
    for (float & height : content.heights)
        height = 900.0F;
    content.west = s_west + 20 * s_cell;
    const std::string east = folder.write("east.tif", content.encode());
    const std::string old = built("terrain", {west, "--level", "4", "--lighting", "none"}, "old.ztt");
    const std::string both = built("terrain", {east, "--merge", old, "--lighting", "none"}, "both.ztt");
    const auto heightAt = [&](const std::string & x) {
        return zmt({"pick", "--terrain", both, "--view", x + ",3099500,5000," + x + ",3099501,800", "--size",
                    "11x11", "5,5"})
            .output;
    };
    EXPECT_NE(heightAt("500300").find(" 800.0"), std::string::npos) << heightAt("500300");
    EXPECT_NE(heightAt("501000").find(" 900.0"), std::string::npos) << heightAt("501000");
    EXPECT_NE(heightAt("501600").find(" 900.0"), std::string::npos) << heightAt("501600");
}

TEST_F(Streaming, MergedRastersAreBroughtToTheSystemOfTheOldTerrain) {
    const std::string raster = folder.write("old.tif", slope(40, 30, 0.0).encode());
    // A hill in the same place, in degrees.
    SmallGeoTiff content{20, 20};
    content.heights.assign(400, 900.0F);
    content.system = 4326;
    content.isInDegrees = true;
    content.west = 87.005;
    content.north = 28.021;
    content.cell = 0.0003;
    const std::string degrees = folder.write("degrees.tif", content.encode());
    const std::string old = built("terrain", {raster, "--level", "4", "--lighting", "none"}, "old.ztt");
    const std::string both = built("terrain", {degrees, "--merge", old, "--lighting", "none"}, "both.ztt");
    EXPECT_EQ(readWhole(folder.out("old.prj")), readWhole(folder.out("both.prj")));
    const auto heightAt = [&](const std::string & x) {
        return zmt({"pick", "--terrain", both, "--view", x + ",3099500,5000," + x + ",3099501,800", "--size",
                    "11x11", "5,5"})
            .output;
    };
    EXPECT_NE(heightAt("500300").find(" 8"), std::string::npos) << heightAt("500300");
    EXPECT_NE(heightAt("500750").find(" 900.0"), std::string::npos) << heightAt("500750");
}

TEST_F(Streaming, MergingTellsWhatIsLeftOutAndWhichSystemIsMissing) {
    SmallGeoTiff content = slope(33, 33, 0.0);
    const std::string raster = folder.write("old.tif", content.encode());
    const std::string old = built("terrain", {raster, "--level", "4", "--lighting", "none"}, "old.ztt");
    const auto errors = [&](const SmallGeoTiff & added, const std::string & onto) {
        const RunResult run = zmt({"build", "terrain", folder.write("added.tif", added.encode()), "--merge",
                                   onto, "--lighting", "none", folder.out("both.ztt")});
        EXPECT_EQ(0, run.status) << run.errors;
        return run.errors;
    };
    EXPECT_EQ(errors(content, old).find("warning"), std::string::npos);
    content.west -= 8 * s_cell;
    const std::string cut = errors(content, old);
    EXPECT_NE(cut.find("added.tif: 24.2 % lie outside of the square of " + old), std::string::npos) << cut;
    const std::string large = errors(slope(600, 600, 0.0), old);
    EXPECT_NE(large.find("added.tif: 99.7 % lie outside"), std::string::npos) << large;

    content.west += 8 * s_cell;
    fs::remove(folder.out("old.prj"));
    const std::string unknown = errors(content, old);
    EXPECT_NE(unknown.find("old.ztt: has no coordinate system"), std::string::npos) << unknown;
    EXPECT_FALSE(fs::exists(folder.out("both.prj")));
}

TEST_F(Streaming, SeveralRastersAreOneTerrain) {
    const std::string west = folder.write("west.tif", slope(40, 30, 0.0).encode());
    SmallGeoTiff content = slope(40, 30, 0.0);
    content.west = s_west + 40 * s_cell;
    const std::string east = folder.write("east.tif", content.encode());
    const std::string both = built("terrain", {west, east, "--lighting", "none"}, "both.ztt");
    const auto heightAt = [&](const std::string & x) {
        return zmt({"pick", "--terrain", both, "--view", x + ",3099500,5000," + x + ",3099501,800", "--size",
                    "11x11", "5,5"})
            .output;
    };
    EXPECT_NE(heightAt("500300").find(" 800.0"), std::string::npos);
    EXPECT_NE(heightAt("502300").find(" 800.0"), std::string::npos);
}

TEST_F(Streaming, TexturesWithAKeyNeedIt) {
    const std::string terrain = built("terrain", {s_everest, "--lighting", "none"}, "t.ztt");
    const std::string texture =
        built("texture", {s_everestImage, "--terrain", terrain, "--key", "0x123456789abcdef0"}, "t.zts");
    const std::vector<std::string> arguments = {"--terrain", terrain, "--image", texture, "--view", "north"};
    const RunResult run =
        zmt({"render", "--terrain", terrain, "--image", texture, "--key", "1", "--out", folder.out("x.png")});
    EXPECT_EQ(1, run.status);
    EXPECT_NE(run.errors.find("--key"), std::string::npos) << run.errors;
    std::vector<std::string> withKey = arguments;
    withKey.insert(withKey.end(), {"--key", "1311768467463790320"});
    rendered(withKey, "key.png");
}

TEST_F(Streaming, OptionsOfRastersAreRefused) {
    const std::string raster = folder.write("slope.tif", slope(20, 20).encode());
    const std::string terrain = built("terrain", {raster, "--lighting", "none"}, "t.ztt");
    const std::vector<std::vector<std::string>> cases = {
        {"--max-vertices", "100"}, {"--threads", "2"},           {"--fill-voids"},
        {"--method", "tree"},      {"--breaklines", raster},     {"--drape", raster},
        {"--lighting", "vertex"},  {"--lighting", "static"},     {"--memory", "0"},
        {"--memory", "4096"},      {"--graphics-memory", "4096"}};
    for (const auto & words : cases) {
        std::vector<std::string> arguments = {"render", "--terrain", terrain, "--out", folder.out("x.png")};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const RunResult run = zmt(arguments);
        EXPECT_EQ(2, run.status) << words.front() << run.errors;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(run.errors.find(words.front()), std::string::npos) << run.errors;
    }
}

TEST_F(Streaming, OptionsOfBuildingAreChecked) {
    const std::string raster = folder.write("slope.tif", slope(20, 20).encode());
    const std::vector<std::vector<std::string>> cases = {
        {"terrain", raster},
        {"terrain", raster, folder.out("t.ztt"), "--level", "8"},
        {"terrain", raster, folder.out("t.ztt"), "--level", "0"},
        {"terrain", raster, folder.out("t.ztt"), "--resampling", "cubic"},
        {"terrain", raster, folder.out("t.ztt"), "--lighting", "sunny"},
        {"terrain", raster, folder.out("t.ztt"), "--lighting", "none", "--light", "1,2"},
        {"terrain", raster, folder.out("t.ztt"), "--threads", "5000"},
        {"terrain", raster, raster},
        {"texture", raster, "--terrain", raster},
        {"texture", raster, folder.out("t.zts"), "--terrain", raster, "--tile", "8"},
        {"texture", raster, folder.out("t.zts"), "--terrain", raster, "--format", "tiff"},
        {"texture", raster, folder.out("t.zts"), "--terrain", raster, "--key", "x"}};
    for (const auto & words : cases) {
        std::vector<std::string> arguments = {"build"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const RunResult run = zmt(arguments);
        EXPECT_EQ(2, run.status) << words.back() << " " << run.errors;
        EXPECT_TRUE(folder.results().empty());
    }
}

TEST_F(Streaming, FilesInTheWrongPlaceAreToldByTheirContent) {
    const std::string raster = folder.write("slope.tif", slope(20, 20).encode());
    const std::string terrain = built("terrain", {raster, "--lighting", "none"}, "any.name");
    const std::string texture = folder.write("also.any", "ZMT-AQTT and nothing more");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"build", "texture", texture, folder.out("x.zts"), "--terrain", terrain},
         "is a streaming texture, which is only drawn"},
        {{"render", "--terrain", raster, "--image", terrain, "--out", folder.out("x.png")},
         "is a streaming terrain, which has no image"}};
    for (const auto & [arguments, text] : cases) {
        const RunResult run = zmt(arguments);
        EXPECT_EQ(1, run.status) << run.errors;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(run.errors.find(text), std::string::npos) << run.errors;
    }
}

TEST_F(Streaming, AnImageThatLiesElsewhereIsRefused) {
    const std::string raster = folder.write("slope.tif", slope(20, 20).encode());
    const std::string terrain = built("terrain", {raster, "--lighting", "none"}, "t.ztt");
    SmallGeoTiff image{20, 20, SmallGeoTiff::Pixels::Colors};
    image.colors.assign(20 * 20 * 3, 128);
    // To the west, so near that the margin of the first tile touches it, and to the south.
    for (const auto & [west, north] :
         {std::pair(s_west - 19.8 * s_cell, s_north), std::pair(s_west, s_north - 30 * s_cell)}) {
        image.west = west;
        image.north = north;
        const std::string path = folder.write("elsewhere.tif", image.encode());
        const RunResult run = zmt({"build", "texture", path, folder.out("x.zts"), "--terrain", terrain});
        EXPECT_EQ(1, run.status);
        ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(run.errors.find("elsewhere.tif: the image lies elsewhere"), std::string::npos)
            << run.errors;
        EXPECT_FALSE(fs::exists(folder.out("x.zts")));
    }
    image.west = s_west - 19.2 * s_cell;
    image.north = s_north;
    built("texture", {folder.write("touching.tif", image.encode()), "--terrain", terrain}, "x.zts");
}

TEST_F(Streaming, WhatIsNoStreamingFileIsToldInOneLine) {
    const std::string damaged = folder.write("damaged.ztt", "ZMT-AQTG and nothing more");
    const std::string image = folder.write("damaged.zts", "ZMT-AQTT and nothing more");
    const std::string raster = folder.write("slope.tif", slope(20, 20).encode());
    for (const auto & arguments : std::vector<std::vector<std::string>>{
             {"info", damaged},
             {"info", image},
             {"pick", "--terrain", damaged, "1,1"},
             {"render", "--terrain", damaged, "--out", folder.out("x.png")},
             {"render", "--terrain", raster, "--image", image, "--out", folder.out("x.png")}}) {
        const RunResult run = zmt(arguments);
        EXPECT_EQ(1, run.status) << run.errors;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(run.errors.find("damaged.zt"), std::string::npos) << run.errors;
    }
    EXPECT_TRUE(folder.results().empty());
}

TEST_F(Streaming, ACancelledBuildLeavesNothing) {
    RunLimits limits;
    limits.interruptWhenIn = folder.path() / "out";
    const RunResult run = zmt({"build", "terrain", s_everest, folder.out("t.ztt")}, limits);
    EXPECT_EQ(1, run.status) << run.errors;
    EXPECT_NE(run.errors.find("cancelled"), std::string::npos) << run.errors;
    EXPECT_TRUE(folder.results().empty());
}

/// The same from a web server.
class StreamingFromServer : public Streaming {
protected:
    void SetUp() override {
        const std::string terrain = built("terrain", {s_everest, "--level", "5"}, "t.ztt");
        const std::string texture = built("texture", {s_everestImage, "--terrain", terrain}, "t.zts");
        server.setFile("/t.ztt", readWhole(terrain));
        server.setFile("/t.prj", readWhole(folder.out("t.prj")));
        server.setFile("/t.zts", readWhole(texture));
    }
    std::string url(const std::string & path) const {
        return NBX::StringUtils::WString2Utf8String(server.url(path));
    }

    ScriptedHttpServer server;
};

TEST_F(StreamingFromServer, ThePictureIsThatOfTheFiles) {
    const auto local =
        rendered({"--terrain", folder.out("t.ztt"), "--image", folder.out("t.zts")}, "local.png");
    const auto remote = rendered({"--terrain", url("/t.ztt"), "--image", url("/t.zts")}, "remote.png");
    expectAlike(remote, local, 0.0);
    EXPECT_EQ(stats()["read_bytes"].get<int>(), 0);
    EXPECT_GT(stats()["received_bytes"].get<int>(), 10000);
    EXPECT_LE(server.mostConnectionsAtOnce(), 5U);
    for (const auto & request : server.received())
        EXPECT_EQ(request.fields.count("range"), 1U) << request.path;
    EXPECT_NE(zmt({"info", url("/t.ztt")}).output.find("UTM zone 45N"), std::string::npos);
}

TEST_F(StreamingFromServer, ATextureIsBuiltForATerrainThatLiesThere) {
    const std::string texture = built("texture", {s_everestImage, "--terrain", url("/t.ztt")}, "remote.zts");
    EXPECT_TRUE(readWhole(texture) == readWhole(folder.out("t.zts")));
    for (const auto & request : server.received())
        EXPECT_EQ(request.fields.count("range"), 1U) << request.path;
}

TEST_F(StreamingFromServer, WhatTheServerSaysIsTold) {
    HttpAnswer missing;
    missing.status = 404;
    missing.reason = "Not Found";
    server.always(missing);
    const RunResult run = zmt({"info", url("/other.ztt")});
    EXPECT_EQ(1, run.status);
    EXPECT_NE(run.errors.find("404"), std::string::npos) << run.errors;
    EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
}

TEST_F(StreamingFromServer, NeitherLoginsNorQueriesAreShown) {
    const std::string place = "http://me:secret@" + url("/").substr(7);
    const std::string terrain = place + "t.ztt?key=hidden", gone = place + "gone.ztt?key=hidden";
    server.setFile("/broken.zts", "nothing");
    const std::string broken = place + "broken.zts?key=hidden";
    const std::string picture = folder.out("x.png");
    const std::vector<std::vector<std::string>> runs = {
        {"info", terrain},
        {"info", gone},
        {"pick", "--terrain", gone, "1,1"},
        {"pick", "--terrain=" + terrain, "50,50"},
        {"render", "--terrain", terrain, "--image", broken, "--out", picture},
        {"render", "--terrain", terrain, "--image", gone, "--out", picture},
        {"render", "--terrain", terrain, "--image", place + "t.zts?key=hidden", "--gamma", "2", "--out",
         picture},
        {"render", "--terrain", terrain, "--fill-voids", "--out", picture},
        {"render", terrain, "--out", picture},
        {"build", "texture", s_everestImage, folder.out("x.zts"), "--terrain", gone},
        {"lod", "--terrain", terrain},
    };
    for (const auto & words : runs) {
        const RunResult run = zmt(words);
        EXPECT_LT(run.status, 3) << run.errors;
        const std::string said = run.output + run.errors;
        EXPECT_FALSE(said.empty());
        EXPECT_EQ(said.find("secret"), std::string::npos) << said;
        EXPECT_EQ(said.find("hidden"), std::string::npos) << said;
    }
    EXPECT_EQ(server.received().front().fields.at("authorization"), "Basic bWU6c2VjcmV0");
}

TEST_F(StreamingFromServer, APictureWithMissingPartsIsWrittenOnRequestAlone) {
    // The overview is read, and then nothing more.
    const std::vector<std::string> arguments = {"render",  "--terrain", url("/t.ztt"),
                                                "--view",  "closeup",   "--size",
                                                "200x160", "--out",     folder.out("x.png")};
    ASSERT_EQ(0, zmt({"info", url("/t.ztt")}).status);
    const unsigned forInfo = server.requests();
    server.resetCounts();
    for (unsigned i = 0; i < forInfo; ++i)
        server.then({});
    HttpAnswer broken;
    broken.status = 503;
    broken.reason = "Service Unavailable";
    server.always(broken);
    const RunResult run = zmt(arguments);
    EXPECT_EQ(1, run.status) << run.errors;
    EXPECT_NE(run.errors.find("are missing"), std::string::npos) << run.errors;
    EXPECT_NE(run.errors.find("--allow-incomplete"), std::string::npos) << run.errors;
    EXPECT_FALSE(fs::exists(folder.out("x.png")));
    // No storm of requests.
    EXPECT_LT(server.requests(), forInfo + 60U);
}

TEST_F(StreamingFromServer, StatisticsSayWhatCannotBeRead) {
    ASSERT_EQ(0, zmt({"info", url("/t.ztt")}).status);
    const unsigned forInfo = server.requests();
    for (unsigned i = 0; i < forInfo; ++i)
        server.then({});
    HttpAnswer broken;
    broken.status = 503;
    broken.reason = "Service Unavailable";
    server.always(broken);
    const auto picture = rendered({"--terrain", "http://me:secret@" + url("/t.ztt?key=hidden").substr(7),
                                   "--view", "closeup", "--allow-incomplete"},
                                  "incomplete.png");
    EXPECT_TRUE(picture);
    const nlohmann::json failures = stats()["read_failures"];
    ASSERT_FALSE(failures.empty());
    for (const nlohmann::json & failure : failures) {
        EXPECT_EQ(failure["file"], url("/t.ztt"));
        EXPECT_GT(failure["offset"].get<int>(), 0);
        EXPECT_GT(failure["bytes"].get<int>(), 0);
        EXPECT_EQ(failure["reason"], "server '127.0.0.1' answered 503 Service Unavailable");
        EXPECT_GE(failure["retry_s"].get<double>(), 0.0);
    }
    server.always({});
    rendered({"--terrain", url("/t.ztt")}, "complete.png");
    EXPECT_EQ(stats()["read_failures"], nlohmann::json::array());
}

} // namespace
