#include <zmt/util/summit.h>

#include <gtest/gtest.h>

#include "support/testterrain.h"

namespace {

using NBX::Bounds;
using TestTerrain::s_undefined;
using ZMT::UTIL::Summit;
using Point = NBX::Vector3Base<double>;

/// Two columns and three rows a block; blocks are 20 by 60 units.
const ZMT::RASTER::RasterGrid s_layout{2 * Summit::s_blocks, 3 * Summit::s_blocks, 100.0, 200.0, 10.0, 20.0};

struct Spike {
    unsigned x, y;
    double height;
};

/// Flat but for the spikes, without heights where x is below `hole`.
NBX::SO<ZMT::CORE::GridData> spikes(const std::vector<Spike> & all, unsigned hole = 0) {
    return TestTerrain::grid(s_layout, [&](unsigned x, unsigned y) {
        for (const Spike & spike : all)
            if (spike.x == x && spike.y == y) return spike.height;
        return x < hole ? s_undefined : 1.0;
    });
}

TEST(Summit, IsTheHighestVertexInLocalCoordinates) {
    const auto grid = spikes({{40, 90, 7.0}, {41, 20, 9.0}, {30, 30, 8.0}});
    EXPECT_EQ(Point(410.0, 9.0, 400.0), Summit::find(*grid));
}

TEST(Summit, OfEqualOnesTheFirstCounts) {
    EXPECT_EQ(Point(400.0, 9.0, 600.0), Summit::find(*spikes({{40, 90, 9.0}, {40, 30, 9.0}})));
}

TEST(Summit, TheOutermostBlocksAreNoCandidates) {
    const unsigned lastX = 2 * Summit::s_blocks - 1, lastY = 3 * Summit::s_blocks - 1;
    for (const Spike & spike :
         {Spike{1, 60, 9.0}, Spike{40, 2, 9.0}, Spike{lastX - 1, 60, 9.0}, Spike{40, lastY - 2, 9.0}})
        EXPECT_EQ(Point(400.0, 2.0, 1200.0), Summit::find(*spikes({spike, {40, 60, 2.0}})))
            << spike.x << ", " << spike.y;
    for (const Spike & spike :
         {Spike{2, 60, 9.0}, Spike{40, 3, 9.0}, Spike{lastX - 2, 60, 9.0}, Spike{40, lastY - 3, 9.0}})
        EXPECT_EQ(9.0, Summit::find(*spikes({spike}))->y) << spike.x << ", " << spike.y;
}

/// The edge of the data would fill the picture. Columns 20 and 21 are block 10.
TEST(Summit, LiesWhereTheHeightsAroundAreKnown) {
    EXPECT_EQ(2.0, Summit::find(*spikes({{22, 60, 9.0}, {60, 60, 2.0}}, 21))->y) << "beside a hole";
    EXPECT_EQ(2.0, Summit::find(*spikes({{21, 60, 9.0}, {60, 60, 2.0}}, 21))->y) << "in a block with one";
    EXPECT_EQ(9.0, Summit::find(*spikes({{24, 60, 9.0}, {60, 60, 2.0}}, 21))->y) << "two blocks away";
}

TEST(Summit, LiesInThePlan) {
    const auto grid = spikes({{40, 60, 9.0}, {60, 60, 5.0}, {60, 90, 6.0}});
    EXPECT_EQ(5.0, Summit::find(*grid, Bounds({590.0, 0.0, 1190.0}, {610.0, 0.0, 1210.0}))->y)
        << "heights do not count";
    EXPECT_EQ(6.0, Summit::find(*grid, Bounds({590.0, 0.0, 0.0}, {610.0, 0.0, 9000.0}))->y);
    EXPECT_FALSE(Summit::find(*grid, Bounds({-20.0, 0.0, 0.0}, {-10.0, 0.0, 9000.0})));
}

TEST(Summit, ThereIsNoneWithoutHeights) {
    EXPECT_FALSE(Summit::find(*spikes({}, 2 * Summit::s_blocks)));
    EXPECT_EQ(7.0, Summit::find(*spikes({{40, 60, 7.0}}, 2 * Summit::s_blocks))->y) << "one is enough";
}

TEST(Summit, GridsSmallerThanItsBlocksHaveOne) {
    const auto grid = TestTerrain::grid({3, 2, 0.0, 0.0, 1.0, 1.0}, TestTerrain::bumpy);
    ASSERT_TRUE(Summit::find(*grid));
    EXPECT_TRUE(grid->boundingBox().containsPoint(*Summit::find(*grid)));
}

} // namespace
