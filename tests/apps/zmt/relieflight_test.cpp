// "zmt relief occlusion" and "zmt relief sun", as a user meets them.

#include <cmath>

#include <gtest/gtest.h>

#include <zmt/raster/gdal/rasterfile.h>

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

TEST_F(ReliefLightTest, PicturesHaveAWorldFile) {
    const RunResult run = zmt("occlusion", "a.png", {"--directions", "20"});
    ASSERT_EQ(0, run.status) << run.errors;
    EXPECT_EQ((std::vector<std::string>{"a.pgw", "a.png"}), folder.results());
}

} // namespace
