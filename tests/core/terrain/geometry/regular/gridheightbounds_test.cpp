#include "core/terrain/geometry/regular/gridheightbounds.h"

#include <cmath>
#include <limits>
#include <random>

#include "support/smallhybrid.h"

using ZMT::CORE::GridData;
using ZMT::CORE::GridHeightBounds;
using ZMT::RASTER::RasterGrid;

namespace {

constexpr unsigned s_block = GridHeightBounds::blockCells;

/// The least and the greatest height of the vertices of a block.
std::pair<double, double> heightsOf(const GridData & grid, unsigned size, unsigned x, unsigned y) {
    double low = std::numeric_limits<double>::infinity(), high = -low;
    for (unsigned j = y * size; j <= std::min((y + 1) * size, grid.sizeY() - 1); ++j)
        for (unsigned i = x * size; i <= std::min((x + 1) * size, grid.sizeX() - 1); ++i) {
            low = std::min(low, grid.vertex(i, j).y);
            high = std::max(high, grid.vertex(i, j).y);
        }
    return {low, high};
}

TEST(GridHeightBounds, AreThoseOfTheVertices) {
    std::mt19937 random(3);
    const auto noise = [&](unsigned, unsigned) { return double(random()) / 1e5; };
    for (const auto & [sizeX, sizeY] :
         {std::pair(2u, 2u), {9, 9}, {10, 2}, {2, 40}, {17, 18}, {100, 33}, {65, 129}}) {
        SCOPED_TRACE(std::to_string(sizeX) + " by " + std::to_string(sizeY));
        const auto grid = TestTerrain::grid({sizeX, sizeY, 0, 0, 1, 1}, noise);
        const GridHeightBounds bounds(*grid);
        const unsigned top = bounds.levels() - 1;
        EXPECT_EQ(bounds.sizeX(top) * bounds.sizeY(top), 1U);
        for (unsigned level = 0; level <= top; ++level) {
            const unsigned size = s_block << level;
            ASSERT_EQ(bounds.sizeX(level), (sizeX - 1 + size - 1) / size);
            ASSERT_EQ(bounds.sizeY(level), (sizeY - 1 + size - 1) / size);
            for (unsigned y = 0; y < bounds.sizeY(level); ++y)
                for (unsigned x = 0; x < bounds.sizeX(level); ++x) {
                    const auto [low, high] = heightsOf(*grid, size, x, y);
                    ASSERT_EQ(bounds.range(level, x, y).low, low);
                    ASSERT_EQ(bounds.range(level, x, y).high, high);
                }
        }
    }
}

TEST(GridHeightBounds, AreRoundedOutwards) {
    for (const double height : {0.1, -0.1, 1234567.8901, -1e-60, 1e-60, 3.5}) {
        const auto raster =
            TestTerrain::raster<double>({3, 3, 0, 0, 1, 1}, [&](unsigned, unsigned) { return height; });
        const NBX::SO<GridData> grid(new GridData(raster.get()));
        const auto range = GridHeightBounds(*grid).range(0, 0, 0);
        EXPECT_LE(range.low, height);
        EXPECT_GE(range.high, height);
        EXPECT_LE(range.high - range.low, std::abs(height) * 2e-7 + 1e-44);
    }
}

TEST(GridHeightBounds, KnowMicroStructures) {
    const RasterGrid layout{20, 20, 100, 200, 1, 1};
    const auto flat = [](unsigned, unsigned) { return 1.0; };
    const auto hybrid = SmallHybrid::hybrid(layout, flat, {{3, 4, 50.0}, {12, 9, -7.0}});
    const GridHeightBounds bounds(*hybrid);
    EXPECT_EQ(bounds.range(0, 0, 0).high, 50.0F);
    EXPECT_EQ(bounds.range(0, 0, 0).low, 1.0F);
    EXPECT_EQ(bounds.range(0, 1, 1).low, -7.0F);
    EXPECT_EQ(bounds.range(0, 2, 2).low, 1.0F);
    EXPECT_EQ(bounds.range(0, 2, 2).high, 1.0F);
    EXPECT_EQ(bounds.range(bounds.levels() - 1, 0, 0).high, 50.0F);
}

TEST(GridHeightBounds, AMicroStructureThatLeavesItsCellHasNoBounds) {
    const auto raster = TestTerrain::raster({3, 3, 0, 0, 1, 1}, TestTerrain::bumpy);
    const NBX::SO<NBX::Array2D<std::vector<unsigned>>> cells(new NBX::Array2D<std::vector<unsigned>>(3, 3));
    cells->set(0, 0, {0, 1, 8});
    const NBX::SO<ZMT::CORE::HybridData> hybrid(new ZMT::CORE::HybridData(raster.get(), {}, cells.get()));
    const auto range = GridHeightBounds(*hybrid).range(0, 0, 0);
    EXPECT_EQ(range.low, -std::numeric_limits<float>::infinity());
    EXPECT_EQ(range.high, std::numeric_limits<float>::infinity());
}

TEST(GridHeightBounds, TakeABoundedShareOfTheGrid) {
    const auto grid = TestTerrain::grid({1025, 1025, 0, 0, 1, 1}, TestTerrain::bumpy);
    const double heights = double(grid->vertices()) * sizeof(float);
    EXPECT_LT(double(GridHeightBounds(*grid).bytes()), heights / 23.9);
}

TEST(GridHeightBounds, AreMadeOnceForEachGrid) {
    const auto a = TestTerrain::grid({20, 20, 0, 0, 1, 1}, TestTerrain::bumpy),
               b = TestTerrain::grid({40, 20, 0, 0, 1, 1}, TestTerrain::bumpy);
    const GridHeightBounds * ofA = &GridHeightBounds::of(*a);
    const GridHeightBounds * ofB = &GridHeightBounds::of(*b);
    EXPECT_NE(ofA, ofB);
    EXPECT_EQ(&GridHeightBounds::of(*a), ofA);
    EXPECT_EQ(&GridHeightBounds::of(*b), ofB);
    EXPECT_EQ(ofB->sizeX(0), 5U);
}

/// Makes and drops grids, some of which lie where others lay before.
TEST(GridHeightBounds, AreNotThoseOfADeadOrModifiedGrid) {
    for (unsigned i = 0; i < 50; ++i) {
        const float height = float(i);
        const auto raster =
            TestTerrain::raster({12, 12, 0, 0, 1, 1}, [&](unsigned, unsigned) { return height; });
        const NBX::SO<GridData> grid(new GridData(raster.get()));
        EXPECT_EQ(GridHeightBounds::of(*grid).range(0, 0, 0).high, height);
        raster->setValue(2, 2, 1000.0F);
        grid->modified();
        EXPECT_EQ(GridHeightBounds::of(*grid).range(0, 0, 0).high, 1000.0F);
    }
}

} // namespace
