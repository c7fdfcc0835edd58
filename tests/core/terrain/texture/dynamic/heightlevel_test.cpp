#include <zmt/core/terrain/texture/dynamic/heightlevel.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

using NBX::Bounds;
using ZMT::CORE::HeightLevel;
using Point = NBX::Vector3Base<double>;

namespace {

Bounds heights(double low, double high) {
    return {Point(0.0, low, 0.0), Point(1.0, high, 1.0)};
}

TEST(HeightLevel, AllHeightsLieAboveThoseForNoDataAndBelowTheSlab) {
    for (const auto & [low, high] :
         {std::pair(0.0, 0.0), std::pair(0.0, 1000.0), std::pair(8000.0, 8848.0), std::pair(-430.5, 700.25),
          std::pair(-10900.0, -9500.0), std::pair(1.0001, 1499.0001), std::pair(0.9999, 1498.9999)}) {
        const HeightLevel found(heights(low, high));
        ASSERT_TRUE(found.fits()) << low << " to " << high;
        EXPECT_GT(low - found.level(), -500.0) << low << " to " << high;
        EXPECT_LE(high - found.level(), 1000.0) << low << " to " << high;
        EXPECT_GT(high - found.level(), 998.0) << low << " to " << high;
    }
}

TEST(HeightLevel, WholeHeightsAreNeverZero) {
    for (const double high : {500.0, 1498.0, 731.5, -20.0}) {
        const HeightLevel found(heights(high - 1498.0, high));
        for (double height = std::ceil(high - 1498.0); height <= high; height += 1.0)
            ASSERT_NE(static_cast<float>(height - found.level()), 0.0F) << height;
    }
}

TEST(HeightLevel, LargerRangesHaveNone) {
    EXPECT_TRUE(HeightLevel(heights(0.0, HeightLevel::mostRange)).fits());
    EXPECT_FALSE(HeightLevel(heights(0.0, HeightLevel::mostRange + 0.1)).fits());
    EXPECT_EQ(HeightLevel(heights(0.0, 9000.0)).level(), 0.0);
}

TEST(HeightLevel, WhatIsNoRangeHasNone) {
    EXPECT_FALSE(HeightLevel(Bounds()).fits());
    EXPECT_FALSE(HeightLevel(heights(-std::numeric_limits<double>::infinity(), 0.0)).fits());
    EXPECT_FALSE(HeightLevel(heights(0.0, std::numeric_limits<double>::infinity())).fits());
}

} // namespace
