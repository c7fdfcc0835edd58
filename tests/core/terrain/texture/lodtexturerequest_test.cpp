#include <zmt/core/terrain/texture/lodtexturerequest.h>

#include <gtest/gtest.h>

#include "fakepyramid.h"

using NBX::Bounds;
using ZMT::CORE::LODTextureLevel;
using ZMT::CORE::LODTextureRequest;
using Levels = LODTextureRequest::Levels;
using Point = NBX::Vector3Base<double>;

namespace {

Bounds boxOf(double width, double depth) {
    return {Point(5.0, 0.0, 7.0), Point(5.0 + width, 1.0, 7.0 + depth)};
}

/// Levels of pixels of size 1, 2, 4 and 8.
Levels levels(unsigned granularity) {
    Levels result;
    for (unsigned i = 0; i < 4; ++i)
        result.push_back(
            {double(1U << i), double(1U << i), 10000U >> i, 10000U >> i, granularity, granularity});
    return result;
}

struct LevelCase {
    const char * name;
    unsigned granularity;
    double width, depth;
    unsigned level;
};

class ChooseLevelTest : public testing::TestWithParam<LevelCase> {};

TEST_P(ChooseLevelTest, TakesTheFirstThatFitsWithItsTiles) {
    const LevelCase & c = GetParam();
    EXPECT_EQ(LODTextureRequest::chooseLevel(levels(c.granularity), boxOf(c.width, c.depth)), c.level);
}

INSTANTIATE_TEST_SUITE_P(
    Boxes, ChooseLevelTest,
    testing::Values(LevelCase{"all", 1, 510.0, 510.0, 0}, LevelCase{"onePixelTooMany", 1, 511.0, 10.0, 1},
                    LevelCase{"roundedDown", 1, 510.49, 10.0, 0}, LevelCase{"roundedUp", 1, 510.5, 10.0, 1},
                    LevelCase{"theLargerSideCounts", 1, 10.0, 1500.0, 2},
                    LevelCase{"wholeTiles", 128, 383.0, 383.0, 0},
                    LevelCase{"oneTileTooMany", 128, 384.0, 10.0, 1},
                    LevelCase{"twoTilesAtLeast", 256, 255.0, 255.0, 0},
                    LevelCase{"largeTiles", 256, 256.0, 10.0, 1}, LevelCase{"nothingFits", 1, 1e9, 1e9, 3},
                    LevelCase{"tilesLargerThanTextures", 512, 1.0, 1.0, 3},
                    LevelCase{"noGranularity", 0, 510.0, 510.0, 0}),
    [](const auto & info) { return std::string(info.param.name); });

TEST(LODTextureRequest, AnUndefinedBoxHasTheLastLevel) {
    EXPECT_EQ(LODTextureRequest::chooseLevel(levels(1), Bounds()), 3U);
}

TEST(LODTextureRequest, TexturesArePowersOfTwoWithinTheLimit) {
    const std::pair<std::uint64_t, unsigned> cases[] = {
        {0, 1}, {1, 1}, {2, 2}, {3, 4}, {256, 256}, {257, 512}, {512, 512}, {513, 512}, {UINT64_MAX, 512}};
    for (const auto & [pixels, size] : cases)
        EXPECT_EQ(LODTextureRequest::textureSize(pixels), size) << pixels;
}

TEST(LODTextureRequest, TheLargerSideOfATexelCountsOnTheScreen) {
    const auto view = viewFromAbove(0.5);
    EXPECT_NEAR(LODTextureRequest::screenTexelSize({2.0, 8.0, 1, 1, 1, 1}, *view, Point()), 4.0, 1e-9);
    EXPECT_NEAR(LODTextureRequest::screenTexelSize({6.0, 3.0, 1, 1, 1, 1}, *view, Point(9, 9, 9)), 3.0, 1e-9);
}

TEST(LODTextureRequest, OnlyAreaOverlaps) {
    const Bounds texture(Point(0.0, -1e42, 0.0), Point(10.0, 1e42, 10.0));
    const Bounds shared =
        LODTextureRequest::overlap(texture, Bounds(Point(8.0, 3.0, -5.0), Point(20.0, 4.0, 5.0)));
    EXPECT_EQ(shared, Bounds(Point(8.0, 3.0, 0.0), Point(10.0, 4.0, 5.0)));
    EXPECT_FALSE(LODTextureRequest::overlap(texture, Bounds()).isDefined());
    EXPECT_FALSE(LODTextureRequest::overlap(Bounds(), texture).isDefined());
    for (const double x : {10.0, -5.0, 11.0})
        EXPECT_FALSE(LODTextureRequest::overlap(texture, Bounds(Point(x, 0.0, 0.0), Point(x + 5.0, 0.0, 5.0)))
                         .isDefined())
            << x;
    EXPECT_FALSE(
        LODTextureRequest::overlap(texture, Bounds(Point(2.0, 0.0, 1.0), Point(2.0, 9.0, 5.0))).isDefined())
        << "a line";
}

} // namespace
