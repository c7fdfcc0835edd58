#include <zmt/core/terrain/geometry/grid/model/gridterrainwalks.h>

#include <cmath>
#include <limits>
#include <set>

#include <gtest/gtest.h>

#include <nbx/object/progress.h>
#include <zmt/raster/simplerasterdata.h>

#include "support/cancelingdisplay.h"
#include "support/memorygridterrain.h"
#include "support/recordedreports.h"

using namespace ZMT::CORE::GRID;
using NBX::SO;
using Key = MemoryGrid::Key;
using Point = NBX::Vector3Base<double>;
using ZMT::RASTER::SimpleRasterData;

namespace {

/// A plane, so that tiles of every level have the same surface, but for a mark of the level: 100 for each.
MemoryGrid planeGrid(unsigned level, unsigned depth, unsigned mark = 100) {
    MemoryGrid grid;
    grid.level = level;
    grid.depth = depth;
    grid.sample = [=](unsigned d, unsigned x, unsigned y) {
        return static_cast<std::uint16_t>(1000 + d * mark + 2 * x + 3 * y);
    };
    return grid;
}

double areaOf(const ExtractMeshParam & param) {
    double area = 0.0;
    for (std::size_t i = 0; i + 2 < param.indices.size(); i += 3) {
        const Point a = param.vertices.at(param.indices[i]), b = param.vertices.at(param.indices[i + 1]),
                    c = param.vertices.at(param.indices[i + 2]);
        const double twice = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
        EXPECT_GT(twice, 0.0) << "all turn as they are drawn";
        area += twice / 2.0;
    }
    return area;
}

} // namespace

TEST(ExtractMeshWalk, TakesTheFinestCellsOfTheBoxOnceEach) {
    const MemoryGridTerrain terrain(planeGrid(2, 3));
    ExtractMeshParam param;
    param.box = NBX::Bounds(Point(3.5, 6.0, 0), Point(9.0, 13.2, 0));
    terrain.rootTile()->extractMesh(param);
    EXPECT_DOUBLE_EQ((9.0 - 3.0) * (14.0 - 6.0), areaOf(param));
    EXPECT_EQ(2U * 3 * 6 * 8, param.indices.size());
    std::set<std::array<double, 2>> cells;
    for (std::size_t i = 0; i < param.indices.size(); i += 6) {
        const Point & corner = param.vertices[param.indices[i]];
        EXPECT_TRUE(cells.insert({corner.x, corner.y}).second);
    }
    for (const Point & v : param.vertices)
        EXPECT_EQ(1000 + 2 * v.x + 3 * v.y, v.z);
    EXPECT_FALSE(param.isIncomplete);
    EXPECT_FALSE(param.isCancelled);
    // Beside the root, the tiles that have a share in the box.
    for (const auto & [key, count] : terrain.state().loads) {
        const double step = 1U << key.depth;
        EXPECT_LT(key.x * step, 9.0);
        EXPECT_LT(key.y * step, 13.2);
        EXPECT_GT((key.x + 4) * step, 3.5);
        EXPECT_GT((key.y + 4) * step, 6.0);
    }
}

TEST(ExtractMeshWalk, StopsAtTheLevelAskedFor) {
    for (const int level : {0, 1, 2, 3, 7}) {
        const MemoryGridTerrain terrain(planeGrid(2, 3));
        ExtractMeshParam param;
        param.box = NBX::Bounds(Point(0, 0, 0), Point(32, 32, 0));
        param.level = level;
        terrain.rootTile()->extractMesh(param);
        const int shown = std::min(level, 3);
        const unsigned cells = 32U >> shown;
        EXPECT_EQ(6U * cells * cells, param.indices.size()) << level;
        EXPECT_DOUBLE_EQ(32.0 * 32.0, areaOf(param));
        for (const Point & v : param.vertices)
            ASSERT_EQ(1000 + shown * 100 + 2 * v.x + 3 * v.y, v.z);
        for (const auto & [key, count] : terrain.state().loads)
            EXPECT_GE(int(key.depth), shown);
    }
}

TEST(ExtractMeshWalk, PointTakesTheCellAroundIt) {
    const MemoryGridTerrain terrain(planeGrid(2, 1));
    for (const double at : {0.0, 3.5, 4.0, 7.99, 8.0}) {
        ExtractMeshParam param;
        param.box = NBX::Bounds(Point(at, at, 0));
        terrain.rootTile()->extractMesh(param);
        EXPECT_EQ(at < 8.0 ? 6U : 0U, param.indices.size()) << at << ": none begins at the end";
    }
}

TEST(ExtractMeshWalk, UndefinedSamplesTakeTheirTrianglesAlone) {
    MemoryGrid grid = planeGrid(2, 0);
    grid.sample = [](unsigned, unsigned x, unsigned y) -> std::uint16_t { return x == 1 && y == 1 ? 0 : 9; };
    const MemoryGridTerrain terrain(grid);
    ExtractMeshParam param;
    param.box = NBX::Bounds(Point(0, 0, 0), Point(4, 4, 0));
    terrain.rootTile()->extractMesh(param);
    EXPECT_EQ(3U * (32 - 6), param.indices.size());
    EXPECT_EQ(24U, param.vertices.size()) << "the undefined one is no vertex";
}

TEST(ExtractMeshWalk, PartsOfATileAndVoidsAreTakenOnce) {
    MemoryGrid grid = planeGrid(2, 2, 0);
    grid.kind = [](const Key & key) -> unsigned {
        return key == Key{1, 4, 0} ? 1 : key == Key{0, 4, 4} ? 0 : key == Key{0, 0, 8} ? 1 : 2;
    };
    const MemoryGridTerrain terrain(grid);
    ExtractMeshParam param;
    param.box = NBX::Bounds(Point(0, 0, 0), Point(16, 16, 0));
    terrain.rootTile()->extractMesh(param);
    EXPECT_DOUBLE_EQ(16.0 * 16.0 - 16.0, areaOf(param));
}

TEST(ExtractMeshWalk, CoarserTileStandsInForWhatCannotBeRead) {
    const MemoryGridTerrain terrain(planeGrid(2, 3));
    terrain.state().failing = {{1, 0, 4}, {0, 16, 0}};
    ExtractMeshParam param;
    param.box = NBX::Bounds(Point(0, 0, 0), Point(32, 32, 0));
    terrain.rootTile()->extractMesh(param);
    EXPECT_TRUE(param.isIncomplete);
    EXPECT_DOUBLE_EQ(32.0 * 32.0, areaOf(param)) << "no hole, and nothing twice";
    for (std::size_t i = 0; i < param.indices.size(); i += 3) {
        const Point & v = param.vertices[param.indices[i]];
        const Point centre =
            (v + param.vertices[param.indices[i + 1]] + param.vertices[param.indices[i + 2]]) / 3.0;
        const bool isInFirst = centre.x < 8 && centre.y > 8 && centre.y < 16;
        const bool isInSecond = centre.x > 16 && centre.x < 20 && centre.y < 4;
        const double level = isInFirst ? 2 : isInSecond ? 1 : 0;
        ASSERT_EQ(1000 + 100 * level + 2 * v.x + 3 * v.y, v.z);
    }
}

TEST(ExtractMeshWalk, BoxWithoutExtentElsewhereOrWithoutEndIsFine) {
    const MemoryGridTerrain terrain(planeGrid(2, 1));
    ExtractMeshParam undefined;
    terrain.rootTile()->extractMesh(undefined);
    EXPECT_TRUE(undefined.indices.empty());
    ExtractMeshParam elsewhere;
    elsewhere.box = NBX::Bounds(Point(100, 100, 0), Point(1e300, 1e300, 0));
    terrain.rootTile()->extractMesh(elsewhere);
    EXPECT_TRUE(elsewhere.indices.empty());
    EXPECT_EQ(1U, terrain.state().totalLoads());
    constexpr double infinity = std::numeric_limits<double>::infinity();
    ExtractMeshParam everything;
    everything.box = NBX::Bounds(Point(-infinity, -1e300, 0), Point(1e300, infinity, 0));
    terrain.rootTile()->extractMesh(everything);
    EXPECT_DOUBLE_EQ(64.0, areaOf(everything));
}

TEST(ExtractMeshWalk, ProgressGrowsToItsTotalAndMayCancel) {
    const MemoryGridTerrain terrain(planeGrid(2, 2));
    NBX::Progress progress("mesh", 8.0);
    ExtractMeshParam param;
    param.progress = &progress;
    param.box = NBX::Bounds(Point(1, 1, 0), Point(15, 40, 0));
    terrain.rootTile()->extractMesh(param);
    EXPECT_NEAR(8.0, progress.currentValue(), 1e-9);
    EXPECT_FALSE(param.isCancelled);

    const CancelingDisplay display;
    NBX::Progress other("mesh", 8.0);
    ExtractMeshParam cancelled;
    cancelled.progress = &other;
    cancelled.box = param.box;
    terrain.rootTile()->extractMesh(cancelled);
    EXPECT_TRUE(cancelled.isCancelled);
    EXPECT_LT(cancelled.indices.size(), param.indices.size());
}

TEST(LightMapWalk, TakesTheCoarsestTilesThatAreAsFineAsTheLattice) {
    for (const double step : {0.25, 1.0, 1.9, 2.0, 4.0, 7.0, 8.0, 100.0}) {
        const MemoryGridTerrain terrain(planeGrid(2, 3));
        GetLightMapParam param;
        param.step = step;
        param.width = static_cast<unsigned>(32 / step) + 1;
        param.height = 3;
        terrain.rootTile()->getLightMapRaster(param);
        const double level = step < 2 ? 0 : step < 4 ? 1 : step < 8 ? 2 : 3;
        ASSERT_EQ(std::size_t(param.width) * 3, param.values.size());
        for (unsigned y = 0; y < 3 && y * step <= 32; ++y)
            for (unsigned x = 0; x < param.width; ++x)
                ASSERT_FLOAT_EQ(float(1000 + 100 * level + 2 * x * step + 3 * y * step),
                                param.values[x + y * param.width])
                    << step << ": " << x << ", " << y;
        for (const auto & [key, count] : terrain.state().loads)
            EXPECT_GE(key.depth, level);
        EXPECT_FALSE(param.isIncomplete);
    }
}

TEST(LightMapWalk, RingAroundATileReachesIntoItsNeighboursAndBeyondTheTerrain) {
    const MemoryGridTerrain terrain(planeGrid(2, 1, 0));
    GetLightMapParam param;
    param.minX = 3.0, param.minY = -1.0, param.step = 1.0, param.width = 7, param.height = 7;
    terrain.rootTile()->getLightMapRaster(param);
    for (unsigned y = 0; y < 7; ++y)
        for (unsigned x = 0; x < 7; ++x) {
            const double gridX = 3.0 + x, gridY = -1.0 + y;
            const bool isInside = gridX <= 8.0 && gridY >= 0.0;
            EXPECT_EQ(isInside ? float(1000 + 2 * gridX + 3 * gridY) : 0.0F, param.values[x + y * 7]);
        }
}

TEST(LightMapWalk, UndefinedIsZeroAndSoIsWhatHasNoTile) {
    MemoryGrid grid = planeGrid(2, 1, 0);
    grid.kind = [](const Key & key) { return key == Key{0, 4, 4} ? 0U : 2U; };
    const auto plane = grid.sample;
    grid.sample = [=](unsigned d, unsigned x, unsigned y) -> std::uint16_t {
        return x == 1 && y == 2 ? 0 : plane(d, x, y);
    };
    const MemoryGridTerrain terrain(grid);
    GetLightMapParam param;
    param.width = 9, param.height = 9;
    terrain.rootTile()->getLightMapRaster(param);
    for (unsigned y = 0; y < 9; ++y)
        for (unsigned x = 0; x < 9; ++x)
            EXPECT_EQ((x == 1 && y == 2) || (x >= 4 && y >= 4), param.values[x + y * 9] == 0.0F)
                << x << ", " << y;
}

TEST(LightMapWalk, CoarserTileStandsInForWhatCannotBeRead) {
    const MemoryGridTerrain terrain(planeGrid(2, 1));
    terrain.state().failing = {{0, 4, 0}};
    GetLightMapParam param;
    param.width = 8, param.height = 1;
    terrain.rootTile()->getLightMapRaster(param);
    EXPECT_TRUE(param.isIncomplete);
    for (unsigned x = 0; x < 8; ++x)
        EXPECT_EQ(float(1000 + (x < 4 ? 0 : 100) + 2 * x), param.values[x]);
}

TEST(LightMapWalk, LatticeWithoutNumbersIsReportedAndEmpty) {
    const MemoryGridTerrain terrain(planeGrid(2, 1));
    for (const double step :
         {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        RecordedReports reports;
        GetLightMapParam param;
        param.step = step;
        param.width = 2, param.height = 2;
        terrain.rootTile()->getLightMapRaster(param);
        EXPECT_EQ(std::vector<float>(4, 0.0F), param.values);
        EXPECT_EQ(1U, reports.size());
    }
}

TEST(ResamplingWalk, FillsWhatIsUndefinedInTheRasterAndKnownHere) {
    MemoryGrid grid = planeGrid(2, 2, 0);
    grid.grid2geo = MemoryGrid::toGeo(10.0, 20.0, 0.5, 300000.0, 5000000.0, -50.0);
    const MemoryGridTerrain terrain(grid);
    SimpleRasterData<float> raster(5, 4, 300000.0 - 10.0, 5000000.0, 10.0, 20.0, true, -1.0F);
    raster.setValue(3, 2, 7.0F);
    ResamplingParam param;
    param.target = &raster;
    terrain.rootTile()->resampleRasterData(param);
    for (unsigned y = 0; y < 4; ++y)
        for (unsigned x = 0; x < 5; ++x) {
            const double height = (1000 + 2.0 * (x - 1.0) + 3.0 * y) * 0.5 - 50.5;
            const double expected = x == 0 ? -1.0 : x == 3 && y == 2 ? 7.0 : height;
            EXPECT_FLOAT_EQ(float(expected), float(raster.value(x, y))) << x << ", " << y;
        }
    EXPECT_FALSE(param.isIncomplete);
}

TEST(ResamplingWalk, CoarseRasterIsServedByCoarseTiles) {
    MemoryGrid grid = planeGrid(2, 3);
    grid.grid2geo = MemoryGrid::toGeo(10.0, 20.0, 1.0, 0.0, 0.0, 1.0);
    const MemoryGridTerrain terrain(grid);
    // Four cells along x, two along y.
    SimpleRasterData<float> raster(4, 4, 0.0, 0.0, 40.0, 40.0, true, 0.0F);
    ResamplingParam param;
    param.target = &raster;
    terrain.rootTile()->resampleRasterData(param);
    EXPECT_EQ(1100.0, raster.value(0U, 0U)) << "the finer of the two steps decides";
    for (const auto & [key, count] : terrain.state().loads)
        EXPECT_GE(key.depth, 1U);
}

TEST(ResamplingWalk, MissingTargetIsReported) {
    RecordedReports reports;
    const MemoryGridTerrain terrain(planeGrid(2, 1));
    ResamplingParam param;
    terrain.rootTile()->resampleRasterData(param);
    EXPECT_EQ(1U, reports.count(L"no target"));
}
