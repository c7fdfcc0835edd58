#include <zmt/core/vector/floodarea.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/raster/simplerasterdata.h>

namespace {

using NBX::SO;
using ZMT::CORE::FloodArea;
using ZMT::CORE::GridData;
using Point = NBX::Vector3Base<double>;
using Raster = ZMT::RASTER::SimpleRasterData<float>;

constexpr double s_west = 500'000.0, s_south = 3'100'000.0, s_sizeX = 20.0, s_sizeZ = 30.0;
constexpr float s_void = -9999.0F;

SO<GridData> gridOf(unsigned columns, unsigned rows, const std::vector<float> & heights) {
    const SO<Raster> raster(new Raster(columns, rows, s_west, s_south, s_sizeX, s_sizeZ, true, s_void));
    raster->setUseLinearInterpolation(true);
    std::copy(heights.begin(), heights.end(), raster->cells());
    return new GridData(raster.get());
}

/// In plan.
double areaOf(const std::array<Point, 3> & t) {
    return std::abs((t[1].x - t[0].x) * (t[2].z - t[0].z) - (t[2].x - t[0].x) * (t[1].z - t[0].z)) / 2.0;
}

double areaOf(const std::vector<Point> & corners) {
    double area = 0.0;
    for (std::size_t i = 0; i < corners.size(); i += 3)
        area += areaOf(std::array{corners[i], corners[i + 1], corners[i + 2]});
    return area;
}

/// Of the part of a triangle that is not above a height: by similar triangles at its lowest and highest
/// corner.
double areaBelow(std::array<Point, 3> t, double height) {
    const double whole = areaOf(t);
    std::sort(t.begin(), t.end(), [](const Point & a, const Point & b) { return a.y < b.y; });
    if (height >= t[2].y) return whole;
    if (height < t[0].y) return 0.0;
    const auto share = [&](int apex, int a, int b) {
        return (height - t[apex].y) / (t[a].y - t[apex].y) * (height - t[apex].y) / (t[b].y - t[apex].y);
    };
    return height < t[1].y ? whole * share(0, 1, 2) : whole * (1.0 - share(2, 0, 1));
}

/// The two triangles of every cell as pictures have them, but for those at undefined corners.
double plainArea(const GridData & grid, double height) {
    double area = 0.0;
    for (unsigned y = 0; y + 1 < grid.sizeY(); ++y)
        for (unsigned x = 0; x + 1 < grid.sizeX(); ++x) {
            const Point b = grid.vertex(x + 1, y), c = grid.vertex(x, y + 1);
            for (const Point & third : {grid.vertex(x, y), grid.vertex(x + 1, y + 1)}) {
                const std::array triangle = {third, b, c};
                const bool isKnown = std::none_of(triangle.begin(), triangle.end(), [&](const Point & p) {
                    return grid.isUndefinedHeightValue(p.y);
                });
                if (isKnown) area += areaBelow(triangle, height);
            }
        }
    return area;
}

/// Some places have one height, as lakes do, and one in ten has none.
SO<GridData> ruggedGrid(unsigned columns, unsigned rows, unsigned seed, bool hasVoids) {
    std::mt19937 random(seed);
    std::vector<float> heights(std::size_t(columns) * rows);
    for (float & height : heights) {
        height = float(random() % 9);
        if (random() % 3 == 0) height += float(random() % 1000) / 1000.0F;
        if (hasVoids && random() % 10 == 0) height = s_void;
    }
    return gridOf(columns, rows, heights);
}

TEST(FloodArea, OfACellIsWhatLiesBelow) {
    // Rises to the east by 10 over a cell of 20 by 30.
    const SO<GridData> slope = gridOf(2, 2, {0.0F, 10.0F, 0.0F, 10.0F});
    EXPECT_DOUBLE_EQ(areaOf(FloodArea::below(*slope, 2.5)), 5.0 * 30.0);
    EXPECT_DOUBLE_EQ(areaOf(FloodArea::below(*slope, 10.0)), 20.0 * 30.0) << "at the height counts as below";
    EXPECT_DOUBLE_EQ(areaOf(FloodArea::below(*slope, 11.0)), 20.0 * 30.0);
    EXPECT_DOUBLE_EQ(areaOf(FloodArea::below(*slope, 0.0)), 0.0);
    EXPECT_TRUE(FloodArea::below(*slope, -1.0).empty());
    EXPECT_TRUE(FloodArea::below(*slope, std::nan("")).empty());
    EXPECT_DOUBLE_EQ(areaOf(FloodArea::below(*slope, HUGE_VAL)), 20.0 * 30.0);
    for (const Point & p : FloodArea::below(*slope, 2.5)) {
        EXPECT_TRUE(p.x == s_west || p.x == s_west + 5.0) << p.x - s_west;
        EXPECT_DOUBLE_EQ(p.y, (p.x - s_west) / 2.0);
        EXPECT_GE(p.z, s_south);
        EXPECT_LE(p.z, s_south + 30.0);
    }
}

TEST(FloodArea, TakesTheDiagonalOfPictures) {
    // Its two low corners, at (1, 0) and (0, 1), are joined.
    const SO<GridData> valley = gridOf(2, 2, {10.0F, 0.0F, 0.0F, 10.0F});
    EXPECT_DOUBLE_EQ(areaOf(FloodArea::below(*valley, 5.0)), 600.0 * 0.75);
    const SO<GridData> ridge = gridOf(2, 2, {0.0F, 10.0F, 10.0F, 0.0F});
    EXPECT_DOUBLE_EQ(areaOf(FloodArea::below(*ridge, 5.0)), 600.0 * 0.25);
}

TEST(FloodArea, IsThatOfAllTrianglesTogether) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        const bool hasVoids = seed % 2 == 0;
        const SO<GridData> grid = ruggedGrid(2 + seed * 3 % 140, 2 + seed * 7 % 31, seed, hasVoids);
        for (const double height : {-1.0, 0.0, 0.7, 3.0, 4.25, 8.0, 9.0}) {
            const double expected = plainArea(*grid, height);
            EXPECT_NEAR(areaOf(FloodArea::below(*grid, height)), expected, 1e-9 * expected + 1e-6)
                << "seed " << seed << ", height " << height;
        }
    }
}

using Place = std::pair<double, double>;
Place placeOf(const Point & p) {
    return {p.x, p.z};
}

TEST(FloodArea, ItsTrianglesShareWholeEdgesAndEndAtTheHeight) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        const SO<GridData> grid = ruggedGrid(70, 20, seed, false);
        const double height = 4.25;
        const auto corners = FloodArea::below(*grid, height);
        std::map<std::pair<Place, Place>, std::vector<std::pair<Point, Point>>> edges;
        for (std::size_t i = 0; i < corners.size(); i += 3)
            for (std::size_t k = 0; k < 3; ++k) {
                const Point & a = corners[i + k];
                const Point & b = corners[i + (k + 1) % 3];
                edges[std::minmax(placeOf(a), placeOf(b))].emplace_back(a, b);
            }
        const double east = s_west + 69 * s_sizeX, north = s_south + 19 * s_sizeZ;
        for (const auto & [key, triangles] : edges) {
            ASSERT_LE(triangles.size(), 2U) << "seed " << seed;
            const auto & [a, b] = triangles.front();
            if (triangles.size() == 2 || placeOf(a) == placeOf(b)) continue;
            const bool isOfTheGrid = (a.x == b.x && (a.x == s_west || a.x == east)) ||
                                     (a.z == b.z && (a.z == s_south || a.z == north));
            EXPECT_TRUE(isOfTheGrid || (a.y == height && b.y == height))
                << "seed " << seed << ": " << a.x - s_west << ", " << a.z - s_south << " to " << b.x - s_west
                << ", " << b.z - s_south;
        }
    }
}

TEST(FloodArea, CornersLieOnTheTerrain) {
    const SO<GridData> grid = ruggedGrid(60, 40, 7, true);
    const auto isLine = [](double place, double size) {
        return std::abs(place / size - std::round(place / size)) < 1e-9;
    };
    unsigned onEdges = 0;
    for (const Point & p : FloodArea::below(*grid, 3.3)) {
        EXPECT_LE(p.y, 3.3);
        // On diagonals the terrain answers by another shape of the cell.
        if (!isLine(p.x - s_west, s_sizeX) && !isLine(p.z - s_south, s_sizeZ)) continue;
        ++onEdges;
        EXPECT_NEAR(grid->calculateHeight(p), p.y, 1e-5) << p.x - s_west << ", " << p.z - s_south;
    }
    EXPECT_GT(onEdges, 1000U);
}

TEST(FloodArea, LevelGroundTakesATriangleOrTwoForEachRow) {
    const SO<GridData> level = gridOf(500, 40, std::vector<float>(500 * 40, 7.0F));
    EXPECT_EQ(FloodArea::below(*level, 7.0).size(), 39U * 2 * 3);
    EXPECT_DOUBLE_EQ(areaOf(FloodArea::below(*level, 7.0)), 499.0 * 39.0 * 600.0);
}

TEST(FloodArea, UndefinedGroundIsNotFlooded) {
    std::vector<float> heights(25, 1.0F);
    heights[12] = s_void; // its six triangles
    heights[0] = 50.0F;
    EXPECT_DOUBLE_EQ(areaOf(FloodArea::below(*gridOf(5, 5, heights), 60.0)), 600.0 * 16 - 6 * 300.0);
    heights.assign(25, s_void);
    EXPECT_TRUE(FloodArea::below(*gridOf(5, 5, heights), 60.0).empty());
}

TEST(FloodArea, CellsWithShapesOfTheirOwnAreTheirTriangles) {
    std::vector<float> heights(20 * 20);
    for (std::size_t i = 0; i < heights.size(); ++i)
        heights[i] = float(i % 20);
    const SO<GridData> plain = gridOf(20, 20, heights);
    // A trench, 40 below, from east to west.
    const auto at = [](double x, double z, double y) { return Point(s_west + x, y, s_south + z); };
    const std::vector<std::vector<Point>> trench = {{at(33.0, 301.0, -40.0), at(321.0, 287.0, -40.0)}};
    const SO<GridData> stamped = ZMT::CORE::CreateHybridData::create(plain, trench).get();
    ASSERT_TRUE(stamped->hasCellShapes());
    double expected = 0.0;
    for (unsigned y = 0; y < 19; ++y)
        for (unsigned x = 0; x < 19; ++x) {
            auto corners = stamped->cellCorners(x, y);
            if (corners.empty())
                for (const auto & [dx, dy] : {std::pair(0, 0), {1, 0}, {0, 1}, {1, 0}, {1, 1}, {0, 1}})
                    corners.push_back(stamped->index(x + unsigned(dx), y + unsigned(dy)));
            for (std::size_t i = 0; i < corners.size(); i += 3)
                expected += areaBelow({stamped->vertex(corners[i]), stamped->vertex(corners[i + 1]),
                                       stamped->vertex(corners[i + 2])},
                                      -20.0);
        }
    EXPECT_GT(expected, 1000.0);
    EXPECT_NEAR(areaOf(FloodArea::below(*stamped, -20.0)), expected, 1e-6 * expected);
    EXPECT_TRUE(FloodArea::below(*plain, -20.0).empty());
}

} // namespace
