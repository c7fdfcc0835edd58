#include "core/terrain/geometry/grid/creation/heightsource.h"

#include <cmath>

#include <gtest/gtest.h>

#include "../functionband.h"

namespace {

using namespace ZMT::CORE::GRID;
using NBX::SO;
using ZMT::RASTER::RasterGrid;

std::vector<float> read(const HeightSource & source, const LatticeArea & area) {
    std::vector<float> heights(std::size_t(area.width()) * area.height());
    source.read(area.minX, area.minY, area.width(), area.height(), heights.data());
    return heights;
}

TEST(HeightSourceTest, ABandIsItsOwnLattice) {
    const BandHeightSource source(
        new FunctionBand(4, 3, [](unsigned x, unsigned y) { return x == 1 ? HUGE_VAL : x + 10.0 * y; }));
    EXPECT_EQ(3U, source.area().maxX);
    EXPECT_EQ(2U, source.area().maxY);
    const std::vector<float> heights = read(source, {1, 1, 3, 2});
    EXPECT_TRUE(std::isnan(heights[0]));
    EXPECT_EQ(12.0F, heights[1]);
    EXPECT_EQ(23.0F, heights[5]);
}

TEST(HeightSourceTest, CellsThatMeetTheLatticeAreTakenAsTheyAre) {
    // Third of cells: positions are not exact.
    const SO<FunctionBand> band(
        new FunctionBand({30, 20, 100.0 + 5 * (1.0 / 3), 50.0 + 2 * (1.0 / 3), 1.0 / 3, 1.0 / 3},
                         FunctionBand::hillsWithHoles));
    const ResampledHeightSource source(band, RasterGrid{1000, 1000, 100.0, 50.0, 1.0 / 3, 1.0 / 3});
    ASSERT_TRUE(source.isOnBand());
    EXPECT_EQ(5U, source.area().minX);
    EXPECT_EQ(34U, source.area().maxX);
    EXPECT_EQ(2U, source.area().minY);
    EXPECT_EQ(21U, source.area().maxY);
    const std::vector<float> heights = read(source, source.area());
    for (unsigned y = 0; y < 20; ++y)
        for (unsigned x = 0; x < 30; ++x) {
            const auto expected = static_cast<float>(FunctionBand::hillsWithHoles(x, y));
            const float actual = heights[x + 30 * y];
            EXPECT_TRUE(expected == actual || (std::isnan(expected) && std::isnan(actual))) << x << " " << y;
        }
}

TEST(HeightSourceTest, BetweenCellsHeightsAreBetweenTheirs) {
    const auto cell = [](unsigned x, unsigned y) {
        return x == 2 && y == 0 ? double(FunctionBand::none) : 4.0 * x + 8.0 * y;
    };
    const SO<FunctionBand> band(new FunctionBand({3, 2, 10.0, 20.0, 4.0, 4.0}, cell));
    const ResampledHeightSource source(band, RasterGrid{100, 100, 9.0, 19.0, 2.0, 2.0});
    EXPECT_EQ(1U, source.area().minX);
    EXPECT_EQ(4U, source.area().maxX) << "17; 19 lies beyond 18";
    const std::vector<float> heights = read(source, source.area());
    EXPECT_FLOAT_EQ(1.0F + 2.0F, heights[0]);
    EXPECT_FLOAT_EQ(3.0F + 2.0F, heights[1]);
    // Beside the hole, the mean of what there is.
    EXPECT_FLOAT_EQ((0.75F * 0.75F * 4 + 0.75F * 0.25F * 12 + 0.25F * 0.25F * 16) / (1 - 0.25F * 0.75F),
                    heights[2]);
}

TEST(HeightSourceTest, BandsBesideTheLatticeHaveNoPoint) {
    const auto isOn = [](double minX, double minY) {
        const SO<FunctionBand> band(new FunctionBand({3, 3, minX, minY, 1.0, 1.0}, FunctionBand::hills));
        return ResampledHeightSource(band, RasterGrid{11, 11, 0.0, 0.0, 1.0, 1.0}).isOnBand();
    };
    EXPECT_TRUE(isOn(0.0, 0.0));
    EXPECT_TRUE(isOn(10.0, -2.0));
    EXPECT_FALSE(isOn(10.5, 0.0));
    EXPECT_FALSE(isOn(0.0, -2.5));
    EXPECT_FALSE(isOn(0.0, 11.0));
    EXPECT_FALSE(isOn(1e300, 0.0));
}

} // namespace
