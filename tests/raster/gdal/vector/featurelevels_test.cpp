#include "raster/gdal/vector/featurelevels.h"

#include <gtest/gtest.h>

namespace {

using namespace ZMT::RASTER;

std::unique_ptr<StoredFeatures> features(const std::string & name) {
    auto result = std::make_unique<StoredFeatures>(name);
    result->finish();
    return result;
}

TEST(FeatureLevels, ServeTolerances) {
    FeatureLevels levels;
    EXPECT_FALSE(levels.levelOf(1.0)) << "without an extent";
    levels.setExtent({0, 0, 4096, 1000});
    EXPECT_EQ(levels.tolerance(0), 1.0);
    EXPECT_EQ(levels.tolerance(2), 1.0 / 16.0);
    const struct {
        double tolerance;
        std::optional<unsigned> level;
    } cases[] = {{1000.0, 0}, {2.0, 0},    {1.99, 1}, {0.5, 1},   {0.49, 2},
                 {0.125, 2},  {1e-30, {}}, {0.0, {}}, {-1.0, {}}, {NAN, {}}};
    for (const auto & c : cases) {
        EXPECT_EQ(levels.levelOf(c.tolerance), c.level) << c.tolerance;
        if (c.level) {
            EXPECT_LE(levels.tolerance(*c.level), c.tolerance / 2.0);
        }
    }
}

TEST(FeatureLevels, AreWantedWhereWindowsHoldTooMuch) {
    FeatureLevels levels;
    levels.setExtent({0, 0, 4096, 4096});
    const GeoExtent box{0, 0, 4096, 4096}, small{0, 0, 100, 100};
    levels.note(0, box, 2.0, 4'000'000); // 1024 by 1024 pixels
    levels.note(0, small, 2.0, 200'000);
    EXPECT_FALSE(levels.isWanted(0));
    levels.note(0, box, 2.0, 4'400'000);
    levels.note(1, small, 0.5, 300'000);
    EXPECT_TRUE(levels.isWanted(0));
    EXPECT_TRUE(levels.isWanted(1));
    EXPECT_FALSE(levels.isWanted(2));
    levels.add(0, features("0"));
    EXPECT_FALSE(levels.isWanted(0)) << "there is one";
}

TEST(FeatureLevels, TheNextFinerOneServesAsWell) {
    FeatureLevels levels;
    levels.setExtent({0, 0, 4096, 4096});
    EXPECT_EQ(levels.find(0), nullptr);
    levels.add(1, features("1"));
    levels.add(3, features("3"));
    EXPECT_NE(levels.find(0), nullptr);
    EXPECT_EQ(levels.find(0), levels.find(1));
    EXPECT_EQ(levels.find(2), levels.find(3));
    EXPECT_NE(levels.find(1), levels.find(3));
    EXPECT_EQ(levels.find(4), nullptr);
}

} // namespace
