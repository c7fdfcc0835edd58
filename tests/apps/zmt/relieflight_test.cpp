// "zmt relief occlusion" and "zmt relief sun", as a user meets them.

#include <cmath>

#include <gtest/gtest.h>

#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/simplerasterdata.h>

#include "support/environmentvariable.h"
#include "support/imagecompare.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

/// A plain with a tower in the middle, 40 by 30 cells of 32 m, and one cell without a height.
class ReliefLightTest : public testing::Test {
protected:
    ReliefLightTest() {
        SmallGeoTiff file;
        file.width = 40;
        file.height = 30;
        for (unsigned line = 0; line < 30; ++line)
            for (unsigned x = 0; x < 40; ++x)
                file.heights.push_back(line == 2 && x == 3                            ? -9999.0F
                                       : x >= 18 && x < 22 && line >= 13 && line < 17 ? 300.0F
                                                                                      : 100.0F);
        file.noData = "-9999";
        heights = folder.write("heights.tif", file.encode());
    }
    RunResult zmt(const std::string & command, const std::string & name,
                  const std::vector<std::string> & further = {}) {
        std::vector<std::string> arguments = {"relief", command, heights, folder.out(name)};
        arguments.insert(arguments.end(), further.begin(), further.end());
        return runProcess(ZMT_EXECUTABLE, arguments, folder);
    }

    RunFolder folder;
    std::string heights;
};

TEST_F(ReliefLightTest, OcclusionIsDarkBesideATowerAndTheSameForAnyPiece) {
    const RunResult run = zmt("occlusion", "a.tif", {"--numbers", "--directions", "60", "--piece", "1"});
    ASSERT_EQ(0, run.status) << run.errors;
    const auto light = ZMT::RASTER::RasterFile(folder.out("a.tif")).read().raster;
    ASSERT_EQ(40u, light->cellsX());
    EXPECT_NEAR(1.0, light->value(1U, 1U), 0.05);
    EXPECT_LT(light->value(17U, 15U), 0.8);
    EXPECT_TRUE(light->isUndefValue(light->value(3U, 27U)));
    ASSERT_EQ(0, zmt("occlusion", "b.tif", {"--numbers", "--directions", "60", "--piece", "9"}).status);
    EXPECT_EQ(readWhole(folder.out("a.tif")), readWhole(folder.out("b.tif")));
    ASSERT_EQ(0, zmt("occlusion", "c.tif", {"--numbers", "--directions", "60", "--seed", "2"}).status);
    EXPECT_NE(readWhole(folder.out("a.tif")), readWhole(folder.out("c.tif")));
}

/// Light from one side would be a shade; directions come four by four, a quarter of a turn from each other.
TEST_F(ReliefLightTest, FewDirectionsOfTheSkyFavourNoSide) {
    SmallGeoTiff cone;
    cone.width = cone.height = 33;
    for (int line = 0; line < 33; ++line)
        for (int x = 0; x < 33; ++x)
            cone.heights.push_back(float(400.0 - 20.0 * std::hypot(x - 16, line - 16)));
    heights = folder.write("cone.tif", cone.encode());
    ASSERT_EQ(0, zmt("occlusion", "a.tif", {"--numbers", "--directions", "8"}).status);
    const auto light = ZMT::RASTER::RasterFile(folder.out("a.tif")).read().raster;
    const double east = light->value(24U, 16U);
    EXPECT_GT(std::abs(east - 1.0), 0.05) << "it is no plane";
    for (const double side : {light->value(8U, 16U), light->value(16U, 8U), light->value(16U, 24U)})
        EXPECT_NEAR(side, east, 0.01);
    ASSERT_EQ(0, zmt("occlusion", "b.tif", {"--numbers", "--directions", "1"}).status) << "also one alone";
}

TEST_F(ReliefLightTest, TheSunsShadowLiesOppositeTheSun) {
    const RunResult run =
        zmt("sun", "a.tif", {"--numbers", "--directions", "4", "--azimuth", "90", "--elevation", "30"});
    ASSERT_EQ(0, run.status) << run.errors;
    const auto light = ZMT::RASTER::RasterFile(folder.out("a.tif")).read().raster;
    EXPECT_NEAR(0.0, light->value(14U, 15U), 0.05);
    EXPECT_NEAR(1.0, light->value(26U, 15U), 0.05);
    EXPECT_NEAR(1.0, light->value(20U, 5U), 0.05);
}

TEST_F(ReliefLightTest, BadOptionsLeaveNothing) {
    for (const std::vector<std::string> & options :
         {std::vector<std::string>{"--directions", "0"}, {"--piece", "0"}, {"--halo", "100000"}}) {
        EXPECT_EQ(2, zmt("occlusion", "a.png", options).status) << options[0];
        EXPECT_TRUE(folder.results().empty());
    }
    EXPECT_EQ(2, zmt("sun", "a.png", {"--elevation", "0"}).status);
    EXPECT_EQ(2, zmt("occlusion", "a.png", {"--numbers"}).status);
    EXPECT_EQ(2, zmt("occlusion", "a.jpg").status);
    EXPECT_TRUE(folder.results().empty());
}

NBX::SO<ZMT::RASTER::SimpleRasterData<float>> lightIn(const std::string & path) {
    return ZMT::RASTER::RasterFile(path).read().raster;
}

/// By `zmt relief` of a part of the sample data.
std::string lightOf(const RunFolder & folder, const std::string & command, const char * raster,
                    const std::string & out, const std::vector<std::string> & further) {
    std::vector<std::string> arguments = {
        "relief", command, std::string(ZMT_DATA_DIR "/../tests/data/") + raster, folder.out(out)};
    arguments.insert(arguments.end(), further.begin(), further.end());
    const RunResult run = runProcess(ZMT_EXECUTABLE, arguments, folder);
    EXPECT_EQ(0, run.status) << run.errors;
    return folder.out(out);
}

TEST_F(ReliefLightTest, LooksAsBefore) {
    EXPECT_EQ("", compareWithGolden(
                      lightOf(folder, "occlusion", "everest_heights.tif", "a.png", {"--directions", "80"}),
                      "occlusion"));
    EXPECT_EQ("",
              compareWithGolden(lightOf(folder, "sun", "jacksboro_heights.tif", "b.png",
                                        {"--exaggeration", "2", "--elevation", "20", "--directions", "16"}),
                                "sun"));
}

TEST_F(ReliefLightTest, IsTheSameForAnyNumberOfThreadsOfTheRenderer) {
    const auto light = [&](const char * threads) {
        const EnvironmentVariable variable("LP_NUM_THREADS", threads);
        return lightIn(lightOf(folder, "occlusion", "jacksboro_heights.tif", std::string(threads) + ".tif",
                               {"--numbers", "--directions", "12"}));
    };
    const auto one = light("1"), three = light("3");
    unsigned others = 0;
    for (unsigned y = 0; y < one->cellsY(); ++y)
        for (unsigned x = 0; x < one->cellsX(); ++x)
            others += std::abs(one->value(x, y) - three->value(x, y)) > 2.0 / 255.0 ? 1 : 0;
    EXPECT_LE(1000 * others, one->cellsX() * one->cellsY());
}

/// Rows of tiles, of 512 and of 88 rows, are none of the tiles of files.
TEST_F(ReliefLightTest, RastersOfSeveralRowsOfTilesComeInTheirOrder) {
    SmallGeoTiff file;
    file.width = 20;
    file.height = 600;
    for (unsigned line = 0; line < 600; ++line)
        for (unsigned x = 0; x < 20; ++x)
            file.heights.push_back((line * 7 + x) % 13 == 0 ? -9999.0F : 100.0F);
    file.noData = "-9999";
    heights = folder.write("high.tif", file.encode());
    for (const std::string name : {"a.tif", "b.tif"}) {
        const RunResult run =
            zmt("occlusion", name,
                name == "a.tif" ? std::vector<std::string>{"--directions", "1", "--numbers"}
                                : std::vector<std::string>{"--directions", "1", "--no-deflate"});
        ASSERT_EQ(0, run.status) << run.errors;
        const auto light = lightIn(folder.out(name));
        for (unsigned line = 0; line < 600; ++line)
            for (unsigned x = 0; x < 20; ++x)
                ASSERT_EQ((line * 7 + x) % 13 == 0, light->isUndefValue(light->value(x, 599 - line)))
                    << name << " " << line << " " << x;
    }
}

TEST_F(ReliefLightTest, PicturesHaveAWorldFile) {
    const RunResult run = zmt("occlusion", "a.png", {"--directions", "20"});
    ASSERT_EQ(0, run.status) << run.errors;
    EXPECT_EQ((std::vector<std::string>{"a.pgw", "a.png"}), folder.results());
}

/// On the plain east of the tower: 128 m wide and 200 m high, its corner at 0, 0, with z upwards.
std::string house() {
    std::string text;
    for (unsigned i = 0; i < 8; ++i)
        text += std::string("v ") + (i & 1 ? "128" : "0") + (i & 2 ? " 128" : " 0") +
                (i & 4 ? " 200" : " 0") + "\n";
    return text + "f 1 2 4 3\nf 5 6 8 7\nf 1 2 6 5\nf 3 4 8 7\nf 1 3 7 5\nf 2 4 8 6\n";
}

TEST_F(ReliefLightTest, HousesShadeTheGroundAsModelsAndInACity) {
    const std::string model = folder.write("house.obj", house());
    const std::vector<std::string> place = {"--up", "z", "--at", "500960,3099424"};
    std::vector<std::string> options = {"--numbers", "--directions", "24"};
    ASSERT_EQ(0, zmt("occlusion", "bare.tif", options).status);
    options.insert(options.end(), {"--casters", model});
    options.insert(options.end(), place.begin(), place.end());
    const RunResult run = zmt("occlusion", "model.tif", options);
    ASSERT_EQ(0, run.status) << run.errors;
    EXPECT_EQ("", run.errors);
    const auto bare = lightIn(folder.out("bare.tif")), shaded = lightIn(folder.out("model.tif"));
    EXPECT_LT(shaded->value(29U, 13U), bare->value(29U, 13U) - 0.1) << "west of it";
    EXPECT_NEAR(0.0, shaded->value(32U, 13U), 0.02) << "below it";
    EXPECT_NEAR(bare->value(1U, 1U), shaded->value(1U, 1U), 0.03);

    std::vector<std::string> build = {
        "build", "city", model, "--terrain", heights, "--out", folder.out("h.city")};
    build.insert(build.end(), place.begin(), place.end());
    const RunResult built = runProcess(ZMT_EXECUTABLE, build, folder);
    ASSERT_EQ(0, built.status) << built.errors;
    ASSERT_EQ(0, zmt("occlusion", "city.tif",
                     {"--numbers", "--directions", "24", "--casters", folder.out("h.city")})
                     .status);
    const auto ofCity = lightIn(folder.out("city.tif"));
    double difference = 0.0;
    for (unsigned y = 0; y < 30; ++y)
        for (unsigned x = 0; x < 40; ++x)
            if (!shaded->isUndefValue(shaded->value(x, y)))
                difference += std::abs(shaded->value(x, y) - ofCity->value(x, y)) / 1200.0;
    EXPECT_LT(difference, 0.002);

    options.insert(options.end(), {"--piece", "1"});
    ASSERT_EQ(0, zmt("occlusion", "piece.tif", options).status);
    EXPECT_EQ(readWhole(folder.out("model.tif")), readWhole(folder.out("piece.tif")));
}

TEST_F(ReliefLightTest, TheSunsShadowOfAHouseIsAsLongAsItIsHighWhateverTheExaggeration) {
    const std::string model = folder.write("house.obj", house());
    for (const char * factor : {"1", "3"}) {
        const RunResult run =
            zmt("sun", "a.tif",
                {"--numbers", "--directions", "1", "--spread", "0", "--azimuth", "90", "--elevation", "45",
                 "--exaggeration", factor, "--casters", model, "--up", "z", "--at", "501088,3099424"});
        ASSERT_EQ(0, run.status) << run.errors;
        const auto light = lightIn(folder.out("a.tif"));
        EXPECT_NEAR(0.0, light->value(29U, 13U), 0.05) << "160 m from it, exaggerated " << factor;
        EXPECT_NEAR(1.0, light->value(26U, 13U), 0.05) << "250 m from it, exaggerated " << factor;
    }
}

TEST_F(ReliefLightTest, HousesStandOnMapsInDegrees) {
    SmallGeoTiff file;
    file.width = file.height = 24;
    file.heights.assign(24 * 24, 50.0F);
    file.isInDegrees = true;
    file.system = 4326;
    file.west = 10.0;
    file.north = 50.0;
    file.cell = 0.0003; // 33 m to the north, 21 m to the east
    heights = folder.write("degrees.tif", file.encode());
    const std::string model = folder.write("house.obj", house());
    const RunResult run =
        zmt("sun", "a.tif",
            {"--numbers", "--directions", "1", "--spread", "0", "--azimuth", "90", "--elevation", "45",
             "--casters", model, "--up", "z", "--at", "10.0042,49.996"});
    ASSERT_EQ(0, run.status) << run.errors;
    const auto light = lightIn(folder.out("a.tif"));
    // Cells are 21.5 m wide, and the western wall is in the middle of cell 14 from the west.
    EXPECT_NEAR(0.0, light->value(6U, 11U), 0.05);
    EXPECT_NEAR(1.0, light->value(3U, 11U), 0.05);
    EXPECT_NEAR(1.0, light->value(6U, 8U), 0.05) << "south of the shadow";
}

TEST_F(ReliefLightTest, CastersBesideTheGroundAreToldAndChangeNothing) {
    const std::string model = folder.write("house.obj", house());
    ASSERT_EQ(0, zmt("occlusion", "a.tif", {"--directions", "9"}).status);
    const RunResult run =
        zmt("occlusion", "b.tif",
            {"--directions", "9", "--casters", model, "--up", "z", "--at", "400000,3000000,0"});
    EXPECT_EQ(0, run.status);
    EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
    EXPECT_NE(std::string::npos, run.errors.find("1 of 1 models stand where")) << run.errors;
    EXPECT_EQ(readWhole(folder.out("a.tif")), readWhole(folder.out("b.tif")));
}

TEST_F(ReliefLightTest, CastersThatCannotBeReadAreErrorsOfOneLine) {
    const std::string model = folder.write("house.obj", house());
    const std::string bad = folder.write("bad.obj", "v 0 0\nf 1 2 9\n");
    const std::string text = folder.write("text.city", "no city");
    const auto refused = [&](int status, const std::vector<std::string> & options,
                             const std::string & words) {
        const RunResult run = zmt("occlusion", "a.png", options);
        EXPECT_EQ(status, run.status) << run.errors;
        EXPECT_NE(std::string::npos, run.errors.find(words)) << run.errors;
        if (status == 1) {
            EXPECT_EQ(1U, run.errorLines().size()) << run.errors;
        }
        EXPECT_TRUE(folder.results().empty());
    };
    refused(1, {"--casters", folder.in("none.obj")}, "none.obj");
    refused(1, {"--casters", folder.in("none.city")}, "none.city");
    refused(1, {"--casters", bad, "--at", "500960,3099424"}, "bad.obj");
    refused(1, {"--casters", text}, "is no city");
    refused(1, {"--casters", heights}, "is no city");
    refused(1, {"--casters", model, "--at", "400000,3000000"}, "has no ground");
    refused(2, {"--at", "500960,3099424"}, "--casters");
    refused(2, {"--casters", model, "--at", "here"}, "--at");
}

} // namespace
