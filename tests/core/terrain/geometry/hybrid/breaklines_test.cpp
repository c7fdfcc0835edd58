#include <zmt/core/terrain/geometry/hybrid/breaklines.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

#include <support/recordedreports.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/vectorfile.h>
#include <zmt/raster/simplerasterdata.h>

#include "support/testterrain.h"

using NBX::SO;
using ZMT::CORE::BreakLines;
using ZMT::CORE::CreateHybridData;
using ZMT::CORE::GridData;
using ZMT::RASTER::VectorLine;
using Point = NBX::Vector3Base<double>;

namespace {

class BreakLinesTest : public testing::Test {
protected:
    /// 6 by 5 cells of 10 by 20 from (100, 200) on; a plane that rises by 1 each metre to the east.
    static SO<GridData> slope() {
        return TestTerrain::grid({7, 6, 100.0, 200.0, 10.0, 20.0},
                                 [](unsigned x, unsigned) { return 10.0 * x; });
    }
    BreakLines::Features features(const std::vector<Point> & points, bool hasHeights) {
        return BreakLines::toFeatures(*grid, {VectorLine{points, false, hasHeights}});
    }

    SO<GridData> grid = slope();
    RecordedReports reports;
};

TEST_F(BreakLinesTest, LinesWithHeightsAreTakenAsTheyAre) {
    const std::vector<Point> points{{105, 7, 205}, {125, 9, 245}, {150, 80, 290}};
    EXPECT_EQ(features(points, true), (BreakLines::Features{{points[0], points[1]}, {points[1], points[2]}}));
}

TEST_F(BreakLinesTest, OthersLieOnTheGround) {
    const auto found = features({{105, 777, 205}, {125, 777, 245}}, false);
    // Two columns and two rows are crossed, the rows at x of 112.5 and 122.5.
    const double x[] = {105, 110, 112.5, 120, 122.5, 125};
    ASSERT_EQ(found.size(), 5U);
    for (unsigned i = 0; i < 5; ++i) {
        for (unsigned end = 0; end < 2; ++end) {
            const Point & p = found[i][end];
            EXPECT_NEAR(p.x, x[i + end], 1e-9);
            EXPECT_NEAR(p.z, 205 + 2.0 * (x[i + end] - 105), 1e-9);
            EXPECT_NEAR(p.y, x[i + end] - 100.0, 1e-9);
        }
    }
}

TEST_F(BreakLinesTest, LinesAreCutAtTheGrid) {
    for (const bool hasHeights : {true, false}) {
        const auto found = features({{50, -50, 230}, {250, 150, 230}}, hasHeights);
        ASSERT_FALSE(found.empty());
        EXPECT_EQ(found.front()[0].x, 100.0);
        EXPECT_EQ(found.back()[1].x, std::nextafter(160.0, 0.0));
        EXPECT_NEAR(found.front()[0].y, 0.0, 1e-9);
        EXPECT_NEAR(found.back()[1].y, 60.0, 1e-9);
        CreateHybridData::create(grid, found);
        EXPECT_TRUE(reports.empty()) << reports;
    }
    EXPECT_TRUE(features({{50, 0, 50}, {250, 0, 190}}, true).empty());
    EXPECT_TRUE(features({{90, 0, 210}, {110, 0, 190}}, true).empty()) << "touches a corner";
}

TEST_F(BreakLinesTest, TheUpperBordersAreKeptInside) {
    const auto found = features({{160, 0, 200}, {160, 0, 300}, {100, 0, 300}}, false);
    ASSERT_FALSE(found.empty());
    const auto data = CreateHybridData::create(grid, found);
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_TRUE(data->microData(5, 0));
    EXPECT_TRUE(data->microData(0, 4));
    EXPECT_FALSE(data->microData(2, 2));
}

TEST_F(BreakLinesTest, WhatIsNotFiniteIsLeftOut) {
    const double nan = std::nan(""), infinity = std::numeric_limits<double>::infinity();
    for (const double bad : {nan, infinity, -infinity}) {
        EXPECT_TRUE(features({{105, 7, 205}, {bad, 7, 245}, {110, 7, 245}}, true).empty());
        EXPECT_TRUE(features({{105, 7, 205}, {110, 7, bad}}, false).empty());
        EXPECT_TRUE(features({{105, bad, 205}, {110, 7, 245}}, true).empty());
        EXPECT_EQ(features({{105, bad, 205}, {109, 7, 215}}, false).size(), 1U) << "has no heights";
    }
    EXPECT_TRUE(features({}, false).empty());
    EXPECT_TRUE(features({{105, 7, 205}}, false).empty());
}

TEST_F(BreakLinesTest, UndefinedGroundIsLeftOut) {
    grid = TestTerrain::grid({7, 6, 100.0, 200.0, 10.0, 20.0}, [](unsigned x, unsigned y) {
        return x == 3 && y == 1 ? TestTerrain::s_undefined : 5.0 + y;
    });
    const auto found = features({{105, 0, 230}, {155, 0, 230}}, false);
    ASSERT_EQ(found.size(), 4U);
    for (const auto & feature : found)
        for (const Point & p : feature)
            EXPECT_NEAR(p.y, 6.5, 1e-9);
    EXPECT_NEAR(found[1][1].x, 120.0, 1e-9);
    EXPECT_NEAR(found[2][0].x, 140.0, 1e-9);
}

TEST_F(BreakLinesTest, AGridWithoutCellsHasNone) {
    grid = TestTerrain::grid({1, 5}, [](unsigned, unsigned) { return 1.0; });
    EXPECT_TRUE(features({{-1, 0, -1}, {1, 0, 3}}, false).empty());
}

/// A stored grid may have vertices anywhere.
TEST_F(BreakLinesTest, OneRowOrColumnOfCellsIsEnough) {
    for (const ZMT::RASTER::RasterGrid & layout :
         {ZMT::RASTER::RasterGrid{7, 2}, ZMT::RASTER::RasterGrid{2, 7}}) {
        grid = TestTerrain::grid(layout, TestTerrain::bumpy);
        EXPECT_EQ(features({{0.25, 3, 0.25}, {0.75, 4, 0.5}}, true).size(), 1U) << layout.cellsX;
    }
}

TEST_F(BreakLinesTest, VerticesFarAwayDoNotWidenTheGrid) {
    const std::vector<Point> line{{-1e16, 0, 230}, {1e16, 0, 230}};
    const auto expected = features(line, false);
    ASSERT_EQ(expected.size(), 6U);
    grid = new ZMT::CORE::HybridData(grid->rasterData().get(), {{1e17, 5, 1e17}, {-1e17, 5, -1e17}}, nullptr);
    EXPECT_EQ(features(line, false), expected);
}

/// Contours of real land, with voids: stamped on the ground they change its triangles and not its shape.
TEST_F(BreakLinesTest, ContoursChangeNoHeights) {
    using namespace ZMT::RASTER;
    const std::string data = std::getenv("ZMT_TEST_DATA");
    const GeoRaster raster = RasterFile(data + "/everest_heights.tif").read();
    const SO<GridData> land(new GridData(raster.raster.get()));
    const GeoExtent extent{raster.raster->minX(), raster.raster->minY(), raster.raster->maxX(),
                           raster.raster->maxY()};
    const auto lines = VectorFile(data + "/everest_contours.geojson").read(raster.reference.wkt, extent);
    const auto hybrid = CreateHybridData::create(land, BreakLines::toFeatures(*land, lines));
    EXPECT_TRUE(reports.empty()) << reports;
    unsigned cells = 0, vertices = 0, exact = 0;
    for (unsigned y = 0; y + 1 < hybrid->sizeY(); ++y) {
        for (unsigned x = 0; x + 1 < hybrid->sizeX(); ++x) {
            const auto micro = hybrid->microData(x, y);
            for (unsigned v = 0; micro && v < micro->vertices(); ++v) {
                const Point p = micro->vertex(v);
                const double error = std::abs(p.y - land->calculateHeight(p + land->origin()));
                // Where a line had to be halved the middle is that of the line.
                EXPECT_LT(error, 10.0);
                vertices += 1;
                exact += error < 0.01 ? 1 : 0;
            }
            cells += micro ? 1 : 0;
        }
    }
    EXPECT_GT(exact, 0.95 * vertices) << exact << " of " << vertices;
    EXPECT_GT(cells, 1000U);
    EXPECT_LT(cells, 4000U);
}

} // namespace
