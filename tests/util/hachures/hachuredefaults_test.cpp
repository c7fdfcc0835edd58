#include <zmt/util/hachures/hachuredefaults.h>

#include <cmath>

#include <gtest/gtest.h>

#include <zmt/raster/simplerasterdata.h>

namespace {

using Raster = ZMT::RASTER::SimpleRasterData<float>;
using ZMT::UTIL::HachureDefaults;

HachureDefaults defaultsOf(unsigned width, unsigned height, double cell, double tangent) {
    const NBX::SO<Raster> raster(new Raster(width, height, 0.0, 0.0, cell, cell, true, -1.0F));
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            raster->setValue(x, y, float(x * cell * tangent));
    return HachureDefaults::of(*raster);
}

TEST(HachureDefaults, CornersOfThePictureAreCells) {
    const HachureDefaults small = defaultsOf(101, 51, 10.0, 0.3), middle = defaultsOf(801, 11, 10.0, 0.3),
                          large = defaultsOf(11, 3001, 10.0, 0.3);
    EXPECT_EQ(401U, small.width);
    EXPECT_EQ(201U, small.height);
    EXPECT_EQ(1601U, middle.width);
    EXPECT_EQ(21U, middle.height);
    EXPECT_EQ(11U, large.width);
    EXPECT_EQ(3001U, large.height);
}

TEST(HachureDefaults, FollowTheUsualSlope) {
    const HachureDefaults found = defaultsOf(801, 11, 10.0, 0.3);
    EXPECT_NEAR(std::atan(0.3) * 180.0 / M_PI, found.usualSlope, 1e-3);
    EXPECT_NEAR(0.4 * found.usualSlope, found.settings.minSlope, 1e-9);
    EXPECT_EQ(50.0, found.settings.heightInterval) << "30 pixels of 5 m rise by 45 m";
}

TEST(HachureDefaults, FlatOrTinyRastersHaveSome) {
    EXPECT_GT(defaultsOf(30, 30, 10.0, 0.0).settings.heightInterval, 0.0);
    const HachureDefaults tiny = defaultsOf(1, 1, 10.0, 0.3);
    EXPECT_EQ(2U, tiny.width);
    EXPECT_EQ(2U, tiny.height);
}

TEST(HachureDefaults, IntervalsAreRoundNumbers) {
    for (const auto & [number, expected] : {std::pair{1.4, 1.0},
                                            {1.6, 2.0},
                                            {3.4, 2.0},
                                            {4.0, 5.0},
                                            {8.0, 10.0},
                                            {0.034, 0.02},
                                            {740.0, 500.0},
                                            {760.0, 1000.0}})
        EXPECT_DOUBLE_EQ(expected, HachureDefaults::rounded(number)) << number;
}

} // namespace
