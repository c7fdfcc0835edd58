// Streaming terrains and textures, as a user of the program builds and looks at them.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <nbx/image/image.h>
#include <nbx/math/color.h>
#include <nbx/object/stringutils.h>

#include "datafiles.h"
#include "documentedkeys.h"
#include "smallground.h"
#include "support/imagecompare.h"
#include "support/scriptedhttpserver.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

namespace fs = std::filesystem;

/// A slope of `width` by `height` cells, higher to the east and to the south; flat where it is `level`.
SmallGeoTiff risingGround(unsigned width, unsigned height, double rise = 4.0) {
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
    const std::string raster = folder.write("slope.tif", risingGround(41, 29).encode());
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
    const std::string raster = folder.write("slope.tif", risingGround(41, 29).encode());
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
    const std::string raster = folder.write("slope.tif", risingGround(41, 29).encode());
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
    const std::string raster = folder.write("slope.tif", risingGround(41, 29).encode());
    const std::string terrain = built("terrain", {raster, "--lighting", "none"}, "t.ztt");
    const std::string output = zmt({"info", terrain}).output;
    EXPECT_NE(output.find("streaming terrain"), std::string::npos) << output;
    // A tile is not wider than the raster.
    EXPECT_NE(output.find("tiles of 17 by 17 heights in 3 levels"), std::string::npos) << output;
    EXPECT_NE(output.find("light:      none"), std::string::npos) << output;
    EXPECT_NE(output.find("WGS 84 / UTM zone 45N"), std::string::npos) << output;
    // The last sample is at 501296; the root, whose samples are four cells apart, knows it less exactly.
    EXPECT_NE(output.find("size:       45 by 33 cells at most"), std::string::npos) << output;
    EXPECT_NE(output.find("x:          500016 to 501456 at most"), std::string::npos) << output;
    EXPECT_NE(output.find("y:          3099088 to 3100144 at most"), std::string::npos) << output;
    const auto object = nlohmann::json::parse(zmt({"info", terrain, "--json"}).output);
    EXPECT_EQ(500016.0, object.at("bounds").at("min_x").get<double>());
    EXPECT_EQ(3100144.0, object.at("bounds").at("max_y").get<double>());
    EXPECT_FALSE(object.contains("edges"));
    EXPECT_NE(output.find("heights:    800 to 1184"), std::string::npos) << output;
}

TEST_F(Streaming, PickedHeightsAreThoseOfTheRaster) {
    const std::string raster = folder.write("slope.tif", risingGround(61, 47).encode());
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
    const std::string terrain = built("terrain", {s_everestHeights, "--lighting", "none"}, "t.ztt");
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
    const auto raster = picture(s_everestHeights, s_everestImage, "raster.png");
    const auto streamed = picture(terrain, s_everestImage, "terrain.png");
    // The voids of the raster are holes of the terrain.
    expectAlike(streamed, raster, 0.15);
    expectAlike(picture(terrain, texture, "both.png"), streamed, 0.07);
    EXPECT_TRUE(stats()["complete"].get<bool>());
    EXPECT_EQ(stats()["missing_tiles"].get<int>(), 0);
    EXPECT_GT(stats()["read_bytes"].get<int>(), 0);
    expectAlike(picture(s_everestHeights, texture, "texture.png"), raster, 0.07);
}

TEST_F(Streaming, WithoutACoordinateSystemALineSaysThatImagesAreNotWarped) {
    const std::string terrain = built("terrain", {s_everestHeights, "--lighting", "none"}, "t.ztt");
    const auto errors = [&] {
        return zmt({"render", "--terrain", terrain, "--image", s_everestImage, "--size", "60x40", "--out",
                    folder.out("x.png")})
            .errorLines();
    };
    EXPECT_EQ(0U, errors().size());
    fs::remove(folder.out("t.prj"));
    ASSERT_EQ(1U, errors().size());
    EXPECT_EQ(
        "zmt: warning: " + s_everestImage +
            ": is laid by its own coordinates, since the terrain has no coordinate system; put the .prj "
            "that was built with it beside it",
        errors()[0]);
}

/// The coarse heights of a streaming terrain are as good as those of the raster in memory, where it has no
/// more of them: for the colours, for the relief and for the place that a close-up shows.
TEST_F(Streaming, CloseUpsAndColoursAreThoseOfTheRaster) {
    SmallGeoTiff hills{129, 129};
    for (unsigned i = 0; i < 129 * 129; ++i) {
        const double x = i % 129 - 80.0, y = i / 129 - 40.0;
        hills.heights.push_back(float(3000.0 * std::exp(-(x * x + y * y) / 900.0) +
                                      200.0 * std::sin(x / 9.0) * std::cos(y / 7.0)));
    }
    const std::string raster = folder.write("hills.tif", hills.encode());
    const std::string terrain = built("terrain", {raster, "--lighting", "none"}, "t.ztt");
    for (const char * view : {"closeup", "north", "overview"}) {
        const auto picture = [&](const std::string & heights, const std::string & name) {
            return rendered({"--terrain", heights, "--view", view, "--geometry-error", "0.5"}, name);
        };
        SCOPED_TRACE(view);
        expectAlike(picture(terrain, "streamed.png"), picture(raster, "raster.png"), 0.08);
    }
    const auto top = [&](const std::string & heights) {
        const RunResult run = zmt({"pick", "--terrain", heights, "--view", "closeup", "--json", "640,360"});
        const auto place = nlohmann::json::parse(run.output);
        return std::pair(place.at("x").get<double>(), place.at("y").get<double>());
    };
    EXPECT_NEAR(top(raster).first, top(terrain).first, 1.0);
    EXPECT_NEAR(top(raster).second, top(terrain).second, 1.0);
}

TEST_F(Streaming, FilesAreTheSameForAnyNumberOfThreads) {
    const auto bytes = [&](const std::string & threads) {
        const std::string terrain = built("terrain", {s_everestHeights, "--level", "5", "--threads", threads},
                                          "t" + threads + ".ztt");
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
    const std::string raster = folder.write("slope.tif", risingGround(80, 60, 16.0).encode());
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

    // A relief that is asked for takes the place of whatever light there is.
    const auto relief = [&](const std::string & terrain, const std::string & sun) {
        return brightness(terrain, {"--lighting", "relief", "--light", sun});
    };
    EXPECT_GT(relief(lit, "315,45,0.1"), relief(lit, "135,45,0.1") * 1.3);
    EXPECT_NEAR(relief(lit, "135,45,0.1"), relief(dark, "135,45,0.1"), 0.02);

    const std::string normals = built("terrain", {raster, "--lighting", "normals"}, "normals.ztt");
    EXPECT_NEAR(relief(normals, "315,45,0.1"), relief(dark, "315,45,0.1"), 0.02);
    EXPECT_NE(zmt({"info", normals}).output.find("light:      normals"), std::string::npos);
    EXPECT_GT(brightness(normals, {"--light", "315,45,0.1"}),
              brightness(normals, {"--light", "135,45,0.1"}) * 1.3);
}

TEST_F(Streaming, LightThatCannotBeReadIsNotTakenForNone) {
    const std::string raster = folder.write("slope.tif", risingGround(80, 60, 16.0).encode());
    const std::string none = built("terrain", {raster, "--lighting", "none"}, "none.ztt");
    const std::string cut = built("terrain", {raster}, "cut.ztt");
    fs::resize_file(cut, fs::file_size(none) + 100);
    const std::string reason = "cannot be read: it is damaged or was cut off; get the file anew";
    for (const char * lighting : {"static", "dynamic"}) {
        const RunResult run =
            zmt({"render", "--terrain", cut, "--lighting", lighting, "--out", folder.out("x.png")});
        EXPECT_EQ(1, run.status);
        EXPECT_EQ("zmt: " + cut + ": the light map behind the terrain " + reason, run.errorLines().at(0));
    }
    const RunResult run = zmt({"render", "--terrain", cut, "--size", "20x16", "--out", folder.out("x.png")});
    EXPECT_EQ(0, run.status);
    EXPECT_EQ(
        "zmt: warning: the light map behind the terrain cannot be read, and a relief is drawn instead: " +
            reason.substr(16) + ": " + cut,
        run.errorLines().at(0));
    const RunResult relief = zmt({"render", "--terrain", cut, "--size", "20x16", "--lighting", "relief",
                                  "--out", folder.out("x.png")});
    EXPECT_EQ(0, relief.status);
    EXPECT_TRUE(relief.errorLines().empty()) << relief.errors;
    const RunResult info = zmt({"info", cut});
    EXPECT_NE(info.output.find("light:      unreadable"), std::string::npos) << info.output;
    EXPECT_EQ("zmt: warning: " + cut + ": the light map behind the terrain " + reason,
              info.errorLines().at(0));
}

TEST_F(Streaming, MergedRastersLieAboveTheOldTerrain) {
    const std::string west = folder.write("west.tif", risingGround(40, 30, 0.0).encode());
    SmallGeoTiff content = risingGround(40, 30, 0.0);
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
    const std::string raster = folder.write("old.tif", risingGround(40, 30, 0.0).encode());
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
    SmallGeoTiff content = risingGround(33, 33, 0.0);
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
    const std::string large = errors(risingGround(600, 600, 0.0), old);
    EXPECT_NE(large.find("added.tif: 99.7 % lie outside"), std::string::npos) << large;

    content.west += 8 * s_cell;
    fs::remove(folder.out("old.prj"));
    const std::string unknown = errors(content, old);
    EXPECT_NE(unknown.find("old.ztt: has no coordinate system"), std::string::npos) << unknown;
    EXPECT_FALSE(fs::exists(folder.out("both.prj")));
}

TEST_F(Streaming, SeveralRastersAreOneTerrain) {
    const std::string west = folder.write("west.tif", risingGround(40, 30, 0.0).encode());
    SmallGeoTiff content = risingGround(40, 30, 0.0);
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
    const std::string terrain = built("terrain", {s_everestHeights, "--lighting", "none"}, "t.ztt");
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

TEST_F(Streaming, InfoTellsATextureWithItsKey) {
    const std::string terrain = built("terrain", {s_everestHeights, "--lighting", "none"}, "t.ztt");
    const std::string texture =
        built("texture", {s_everestImage, "--terrain", terrain, "--key", "0x123456789abcdef0"}, "any.name");
    const std::string output = zmt({"info", texture, "--key", "1311768467463790320"}).output;
    EXPECT_NE(output.find("format:     streaming texture, " + std::to_string(fs::file_size(texture)) +
                          " bytes, written with a key"),
              std::string::npos)
        << output;
    // Two percent wider than what it shows of the terrain.
    EXPECT_NE(output.find("\nx: "), std::string::npos) << output;
    const auto object =
        nlohmann::json::parse(zmt({"info", texture, "--key", "0x123456789abcdef0", "--json"}).output);
    EXPECT_TRUE(object.at("key").get<bool>());
    EXPECT_LT(object.at("edges").at("min_x"), object.at("edges").at("max_x"));
    for (const char * key : {"0", "2"}) {
        const RunResult run = zmt({"info", texture, "--key", key});
        EXPECT_EQ(1, run.status) << run.output;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
    }
    EXPECT_EQ(2, zmt({"info", texture, "--key", "x"}).status);
}

TEST_F(Streaming, InfoTellsPlansAndParts) {
    const std::string raster = folder.write("slope.tif", risingGround(41, 29).encode());
    const std::string plan = folder.out("t.plan"), part = folder.out("second.part");
    ASSERT_EQ(0,
              zmt({"build", "terrain", raster, "--level", "3", "--lighting", "none", "--plan", plan}).status);
    ASSERT_EQ(0, zmt({"build", "terrain", part, "--part", "2/3", "--plan", plan}).status);
    const std::string output = zmt({"info", plan}).output;
    EXPECT_NE(output.find("format:     plan of a streaming terrain, tiles of 9 by 9 heights in 4 levels"),
              std::string::npos)
        << output;
    EXPECT_NE(output.find("raster:     " + raster), std::string::npos) << output;
    EXPECT_NE(output.find("UTM zone 45N"), std::string::npos) << output;
    const auto object = nlohmann::json::parse(zmt({"info", plan, "--json"}).output);
    EXPECT_EQ("plan of a streaming terrain", object.at("kind"));
    EXPECT_EQ(std::vector<std::string>{raster}, object.at("rasters"));
    EXPECT_EQ("EPSG:32645", object.at("crs"));
    EXPECT_TRUE(object.at("merged").is_null());

    const std::string told = zmt({"info", part}).output;
    EXPECT_NE(told.find("format:     part 2 of 3 of a streaming terrain"), std::string::npos) << told;
    const auto share = nlohmann::json::parse(zmt({"info", part, "--json"}).output);
    EXPECT_EQ(2, share.at("part"));
    EXPECT_EQ(3, share.at("parts"));
    EXPECT_EQ(object.at("plan"), share.at("plan")) << "which plan it belongs to";
    EXPECT_NE(told.find("plan:       " + share.at("plan").get<std::string>()), std::string::npos) << told;

    fs::resize_file(part, 100);
    const RunResult cut = zmt({"info", part});
    EXPECT_EQ(1, cut.status);
    EXPECT_NE(cut.errors.find("the part is damaged or cut off"), std::string::npos) << cut.errors;
}

TEST_F(Streaming, OptionsOfRastersAreRefused) {
    const std::string raster = folder.write("slope.tif", risingGround(20, 20).encode());
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
    const std::string raster = folder.write("slope.tif", risingGround(20, 20).encode());
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

TEST_F(Streaming, WhatATerrainTakesOfItsRastersIsTold) {
    const auto told = [&](const SmallGeoTiff & content, const std::vector<std::string> & options = {}) {
        std::vector<std::string> words = {
            "build",      "terrain", folder.write("r.tif", content.encode()), folder.out("t.ztt"),
            "--lighting", "none"};
        words.insert(words.end(), options.begin(), options.end());
        const RunResult run = zmt(words);
        EXPECT_EQ(0, run.status) << run.errors;
        return run.errorLines().empty() ? "" : run.errors;
    };
    SmallGeoTiff content = risingGround(20, 20);
    EXPECT_EQ("", told(content));
    content.unit = "ft";
    EXPECT_EQ("", told(content));
    const auto info = nlohmann::json::parse(zmt({"info", "--json", folder.out("t.ztt")}).output);
    EXPECT_NEAR(0.3048 * 800.0, info.at("heights").at("minimum").get<double>(), 0.01);
    content.unit = "stories";
    EXPECT_NE(std::string::npos, told(content).find("r.tif: the unit of its heights is not known"));
    content = risingGround(20, 20);
    content.heights[30] = -32768.0F;
    EXPECT_NE(std::string::npos, told(content).find("t.ztt: has heights of -32768 m")) << told(content);
    content = risingGround(20, 20);
    content.cell = 2e6;
    EXPECT_NE(std::string::npos, told(content).find("r.tif: has cells of 2e+06 by 2e+06 m"));
    SmallGeoTiff image{4, 4, SmallGeoTiff::Pixels::Colors};
    image.colors.assign(48, 7);
    EXPECT_NE(std::string::npos, told(image).find("r.tif: has 3 bands, of which the first is taken"));
}

TEST_F(Streaming, VoidsAreFilledAsInARaster) {
    SmallGeoTiff content = risingGround(40, 30);
    content.noData = "-9999";
    for (const unsigned hole : {15U * 40 + 20, 15U * 40 + 21, 16U * 40 + 20, 16U * 40 + 21})
        content.heights[hole] = -9999.0F;
    const std::string raster = folder.write("holes.tif", content.encode());
    const std::string open = built("terrain", {raster, "--lighting", "none"}, "open.ztt");
    const std::string filled = built("terrain", {raster, "--lighting", "none", "--fill-voids"}, "filled.ztt");
    // Into the hole, straight down.
    const auto heightIn = [&](const std::string & terrain, const std::vector<std::string> & more) {
        std::vector<std::string> words = {
            "pick",   "--terrain", terrain, "--view", "500672,3099488,5000,500672,3099489,800",
            "--size", "11x11",     "5,5"};
        words.insert(words.end(), more.begin(), more.end());
        const RunResult run = zmt(words);
        double x = 0.0, y = 0.0, height = 0.0;
        const bool isHit = std::sscanf(run.output.c_str(), "%lf %lf %lf", &x, &y, &height) == 3;
        return isHit ? height : -1.0;
    };
    EXPECT_EQ(-1.0, heightIn(open, {}));
    EXPECT_NEAR(heightIn(raster, {"--fill-voids"}), heightIn(filled, {}), 0.1);
    EXPECT_GT(heightIn(filled, {}), 800.0);

    for (const std::vector<std::string> & words :
         {std::vector<std::string>{raster, raster, folder.out("x.ztt")},
          {raster, folder.out("x.ztt"), "--merge", open},
          {raster, "--plan", folder.out("plan")}}) {
        std::vector<std::string> all = {"build", "terrain", "--fill-voids"};
        all.insert(all.end(), words.begin(), words.end());
        const RunResult run = zmt(all);
        EXPECT_EQ(2, run.status) << run.errors;
        EXPECT_NE(std::string::npos, run.errors.find("--fill-voids is for one raster")) << run.errors;
    }
    const std::string vast =
        folder.write("vast.vrt", "<VRTDataset rasterXSize=\"30000\" rasterYSize=\"30000\"><VRTRasterBand "
                                 "dataType=\"Int16\" band=\"1\"/></VRTDataset>");
    const RunResult run = zmt({"build", "terrain", "--fill-voids", vast, folder.out("x.ztt")});
    EXPECT_EQ(1, run.status);
    ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
    EXPECT_NE(std::string::npos, run.errors.find("leave --fill-voids out")) << run.errors;
}

TEST_F(Streaming, ASystemIsRefusedForARasterWithoutAPlace) {
    SmallGeoTiff content = risingGround(20, 20);
    content.isPlaced = false;
    const std::string raster = folder.write("bare.tif", content.encode());
    for (const std::vector<std::string> & way :
         {std::vector<std::string>{folder.out("t.ztt")}, {"--plan", folder.out("plan")}}) {
        std::vector<std::string> words = {"build", "terrain", raster, "--crs", "EPSG:3857"};
        words.insert(words.end(), way.begin(), way.end());
        const RunResult run = zmt(words);
        EXPECT_EQ(1, run.status) << run.errors;
        ASSERT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_NE(std::string::npos, run.errors.find("bare.tif: has no place on the map, so that --crs"))
            << run.errors;
        EXPECT_TRUE(folder.results().empty());
    }
}

TEST_F(Streaming, FilesInTheWrongPlaceAreToldByTheirContent) {
    const std::string raster = folder.write("slope.tif", risingGround(20, 20).encode());
    const std::string terrain = built("terrain", {raster, "--lighting", "none"}, "any.name");
    const std::string texture = folder.write("also.any", "ZMT-AQTT and nothing more");
    const std::string pyramid = built("pyramid", {s_everestImage}, "some.pyramid");
    const std::string lines =
        folder.write("lines.json", R"({"type":"LineString","coordinates":[[86.9,27.9],[86.91,27.91]]})");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"build", "terrain", terrain, folder.out("x.ztt")}, "is a streaming terrain, which is only drawn"},
        {{"build", "terrain", raster, texture, folder.out("x.ztt")},
         "is a streaming texture, which has no heights"},
        {{"build", "terrain", lines, folder.out("x.ztt")}, "holds lines or areas and no heights"},
        {{"build", "pyramid", texture, folder.out("x.ztp")}, "is a streaming texture, which is only drawn"},
        {{"build", "pyramid", terrain, folder.out("x.ztp")}, "is a streaming terrain, which has no image"},
        {{"build", "pyramid", pyramid, folder.out("x.ztp")}, "is a texture pyramid already"},
        {{"build", "pyramid", lines, folder.out("x.ztp")}, "holds lines or areas and no image"},
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
    const std::string raster = folder.write("slope.tif", risingGround(20, 20).encode());
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
    const std::string raster = folder.write("slope.tif", risingGround(20, 20).encode());
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
    const RunResult run = zmt({"build", "terrain", s_everestHeights, folder.out("t.ztt")}, limits);
    EXPECT_EQ(1, run.status) << run.errors;
    EXPECT_NE(run.errors.find("cancelled"), std::string::npos) << run.errors;
    EXPECT_TRUE(folder.results().empty());
}

TEST_F(Streaming, AKilledBuildLeavesNothing) {
    RunLimits limits;
    limits.interruptWhenIn = folder.path() / "out";
    limits.signal = SIGKILL;
    for (const char * lighting : {"none", "static"}) {
        const RunResult run =
            zmt({"build", "terrain", s_everestHeights, folder.out("t.ztt"), "--lighting", lighting}, limits);
        EXPECT_EQ(1000 + SIGKILL, run.status) << run.errors;
        EXPECT_TRUE(folder.results().empty()) << lighting;
    }
}

/// The same from a web server.
class StreamingFromServer : public Streaming {
protected:
    void SetUp() override {
        const std::string terrain = built("terrain", {s_everestHeights, "--level", "5"}, "t.ztt");
        const std::string texture = built("texture", {s_everestImage, "--terrain", terrain}, "t.zts");
        server.setFile("/t.ztt", readWhole(terrain));
        server.setFile("/t.prj", readWhole(folder.out("t.prj")));
        server.setFile("/t.zts", readWhole(texture));
    }
    std::string url(const std::string & path) const {
        return NBX::StringUtils::WString2Utf8String(server.url(path));
    }

    static HttpAnswer unavailable() {
        HttpAnswer answer;
        answer.status = 503;
        answer.reason = "Service Unavailable";
        return answer;
    }
    /// What opening `path` asks for is answered well; from then on all is as `answer` says.
    /// How many requests that is.
    unsigned failAfterOpening(const std::string & path, const HttpAnswer & answer) {
        server.always({});
        server.resetCounts();
        EXPECT_EQ(0, zmt({"info", url(path)}).status);
        // But for the magic, at which only `info` looks apart.
        const unsigned opening = server.requests() - 1;
        for (unsigned i = 0; i < opening; ++i)
            server.then({});
        server.always(answer);
        server.resetCounts();
        return opening;
    }
    /// With tiles below the root.
    void serveFineTexture() {
        const std::string texture =
            built("texture", {s_everestImage, "--terrain", folder.out("t.ztt"), "--tile", "64"}, "fine.zts");
        server.setFile("/t.zts", readWhole(texture));
    }
    /// Of a picture that is not to become complete.
    RunResult incomplete(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "render");
        arguments.insert(arguments.end(), {"--size", "200x160", "--out", folder.out("x.png")});
        const RunResult run = zmt(arguments);
        EXPECT_EQ(1, run.status) << run.errors;
        EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        EXPECT_FALSE(fs::exists(folder.out("x.png")));
        return run;
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

/// By what they hold, whatever their names.
TEST_F(StreamingFromServer, InfoTellsWhatLiesAtAUrl) {
    server.setFile("/terrain", readWhole(folder.out("t.ztt")));
    server.setFile("/t.tif", readWhole(s_everestHeights));
    server.setFile("/short", "ZMT");
    EXPECT_NE(zmt({"info", url("/terrain")}).output.find("format:     streaming terrain"), std::string::npos);
    const std::string remote = zmt({"info", url("/t.zts")}).output;
    const std::string local = zmt({"info", folder.out("t.zts")}).output;
    EXPECT_EQ(remote.substr(remote.find("format:")), local.substr(local.find("format:")));
    EXPECT_NE(remote.find("streaming texture"), std::string::npos) << remote;
    const std::string secret =
        built("texture", {s_everestImage, "--terrain", folder.out("t.ztt"), "--key", "77"}, "secret.zts");
    server.setFile("/secret", readWhole(secret));
    EXPECT_NE(zmt({"info", url("/secret"), "--key", "77"}).output.find("written with a key"),
              std::string::npos);
    for (const char * path : {"/t.tif", "/secret", "/short"}) {
        const RunResult run = zmt({"info", url(path)});
        EXPECT_EQ(1, run.status) << run.output;
        EXPECT_EQ("zmt: " + url(path) +
                      ": is neither a streaming terrain, nor a streaming texture, nor a city, or was written "
                      "with another "
                      "--key; get it anew, or give its key",
                  run.errorLines().at(0));
    }
}

TEST_F(StreamingFromServer, ACoordinateSystemThatIsTooLargeIsNotTriedAgain) {
    server.setFile("/t.prj", std::string((1U << 20U) + 1, ' '));
    const RunResult run = zmt({"info", url("/t.ztt")});
    EXPECT_EQ(0, run.status);
    EXPECT_EQ(
        "zmt: warning: the coordinate system beside the terrain cannot be read, and counts as none: is too "
        "large for one: " +
            url("/t.prj") + "; put the one there that was built with the terrain",
        run.errorLines().at(0));
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
    server.setFile("/bare.ztt", readWhole(folder.out("t.ztt")));
    const std::string bare = place + "bare.ztt?key=hidden";
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
        {"validate", terrain},
        {"validate", terrain, "--json"},
        {"validate", gone},
        {"validate", broken},
        {"build", "terrain", folder.write("far.tif", risingGround(99, 99).encode()), folder.out("x.ztt"),
         "--merge", terrain},
        {"build", "terrain", s_everestHeights, folder.out("x.ztt"), "--merge", bare},
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

TEST_F(StreamingFromServer, OtherServersAreFollowedOnRequestAlone) {
    ScriptedHttpServer first;
    const auto redirectTo = [&](const std::string & name) {
        HttpAnswer moved;
        moved.status = 302;
        moved.reason = "Found";
        moved.lines = {"Location: " + NBX::StringUtils::WString2Utf8String(server.url(name, "localhost"))};
        return moved;
    };
    const std::string terrain = NBX::StringUtils::WString2Utf8String(first.url("/t.ztt"));
    const std::vector<std::vector<std::string>> runs = {
        {"info", terrain},
        {"validate", terrain},
        {"pick", "--terrain", terrain, "640,360"},
        {"render", "--size", "100x80", "--terrain", terrain, "--out", folder.out("x.png")},
        {"build", "texture", s_everestImage, folder.out("x.zts"), "--terrain", terrain},
        {"build", "terrain", s_everestHeights, folder.out("x.ztt"), "--lighting", "none", "--merge",
         terrain}};
    for (std::vector<std::string> words : runs) {
        for (const bool follows : {false, true}) {
            server.resetCounts();
            // The terrain is asked for there, and then its system.
            first.then(redirectTo("/t.ztt"));
            if (follows) words.push_back("--follow-redirects");
            if (follows && words.front() != "validate") first.then(redirectTo("/t.prj"));
            const RunResult run = zmt(words);
            EXPECT_EQ(follows ? 0 : 1, run.status) << words.front() << run.errors;
            EXPECT_EQ(!follows, run.errors.find("not followed; give --follow-redirects") != std::string::npos)
                << run.errors;
            EXPECT_EQ(follows, server.requests() > 0U) << words.front();
        }
    }
}

TEST_F(StreamingFromServer, APictureWithMissingPartsIsWrittenOnRequestAlone) {
    // The overview is read, and then nothing more.
    const unsigned opening = failAfterOpening("/t.ztt", unavailable());
    const RunResult run = incomplete({"--terrain", url("/t.ztt"), "--view", "closeup"});
    // How many depends on which of the first answers came in time.
    const std::string line = run.errorLines().at(0);
    const std::string begin =
        "zmt: " + url("/t.ztt") + ": server '127.0.0.1' answered 503 Service Unavailable; ";
    EXPECT_EQ(line.substr(0, begin.size()), begin);
    EXPECT_GT(std::atoi(line.substr(std::min(begin.size(), line.size())).c_str()), 0) << line;
    EXPECT_NE(line.find(" missing; try again later, or give --allow-incomplete"), std::string::npos) << line;
    // No storm of requests.
    EXPECT_LT(server.requests(), opening + 60U);
}

/// Each attempt brings bytes, and none the end of a tile.
TEST_F(StreamingFromServer, TransfersThatAlwaysBreakOffAreNoProgress) {
    HttpAnswer broken;
    broken.dropAfter = 40;
    failAfterOpening("/t.ztt", broken);
    const auto start = std::chrono::steady_clock::now();
    incomplete({"--terrain", url("/t.ztt"), "--view", "closeup"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

/// The whole picture takes longer than a program waits where nothing comes.
TEST_F(StreamingFromServer, ASlowLineIsProgress) {
    HttpAnswer slow;
    slow.secondsPerByte = 0.004;
    serveFineTexture();
    failAfterOpening("/t.zts", slow);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(rendered({"--terrain", s_everestHeights, "--image", url("/t.zts")}, "slow.png"));
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::seconds(12));
    EXPECT_TRUE(stats()["complete"].get<bool>());
}

/// The terrain is sound, whatever its kind, and not what is told.
TEST_F(StreamingFromServer, TilesOfATextureAreMissedLikeThoseOfATerrain) {
    serveFineTexture();
    for (const std::string & terrain : {folder.out("t.ztt"), s_everestHeights}) {
        failAfterOpening("/t.zts", unavailable());
        const std::vector<std::string> arguments = {"--terrain",   terrain,  "--image",
                                                    url("/t.zts"), "--view", "north"};
        const RunResult run = incomplete(arguments);
        EXPECT_EQ("zmt: " + url("/t.zts") +
                      ": server '127.0.0.1' answered 503 Service Unavailable; 4 tiles that the picture needs "
                      "are missing; try again later, or give --allow-incomplete",
                  run.errorLines().at(0));
    }
    failAfterOpening("/t.zts", unavailable());
    rendered(
        {"--terrain", folder.out("t.ztt"), "--image", url("/t.zts"), "--view", "north", "--allow-incomplete"},
        "incomplete.png");
    EXPECT_EQ(4, stats()["missing_tiles"].get<int>());
    EXPECT_FALSE(stats()["complete"].get<bool>());
}

TEST_F(StreamingFromServer, StatisticsSayWhatCannotBeRead) {
    failAfterOpening("/t.ztt", unavailable());
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
    EXPECT_EQ(std::set<std::string>(), undocumentedKeys(stats()));
    server.always({});
    rendered({"--terrain", url("/t.ztt")}, "complete.png");
    EXPECT_EQ(stats()["read_failures"], nlohmann::json::array());
}

} // namespace
