#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "support/memorygridterrain.h"
#include "support/recordedreports.h"

using namespace ZMT::CORE::GRID;
using NBX::Ray;
using NBX::SO;
using Point = NBX::Vector3Base<double>;

namespace {

constexpr double unlimited = std::numeric_limits<double>::infinity();
constexpr double s_nan = std::numeric_limits<double>::quiet_NaN();

/// A tile at (8, 16) steps of 2^depth finest cells, whose heights are those of a list of rows.
SO<GridTerrainTileData> tileOf(unsigned level, unsigned depth, const std::vector<std::uint16_t> & heights) {
    MemoryGrid grid;
    grid.level = level;
    grid.depth = depth;
    const unsigned size = (1U << level) + 1;
    grid.sample = [=](unsigned, unsigned x, unsigned y) {
        return heights.at(((x >> depth) - 8) % size + ((y >> depth) - 16) % size * size);
    };
    return new MemoryGridTileData(grid, {depth, 8, 16});
}

/// Heights at random, with `voids` of a hundred undefined.
std::vector<std::uint16_t> randomHeights(std::mt19937 & random, unsigned level, unsigned voids,
                                         unsigned highest) {
    std::vector<std::uint16_t> heights(((1U << level) + 1) * ((1U << level) + 1));
    for (auto & height : heights)
        height = random() % 100 < voids ? 0 : static_cast<std::uint16_t>(1 + random() % highest);
    return heights;
}

Point sampleOf(const GridTerrainTileData & data, unsigned x, unsigned y) {
    return {double(data.tileX() + x) * data.step(), double(data.tileY() + y) * data.step(),
            double(data.value(x, y))};
}

/// Where the ray meets the plane of a triangle inside of it; infinite otherwise. By determinants.
double hitOf(const Ray & ray, const Point & a, const Point & b, const Point & c, double margin = 1e-9) {
    const Point e1 = b - a, e2 = c - a, p = ray.getDirection().cross(e2);
    const double det = e1.dot(p);
    if (det == 0.0) return unlimited;
    const Point s = ray.getOrigin() - a, q = s.cross(e1);
    const double u = s.dot(p) / det, v = ray.getDirection().dot(q) / det, t = e2.dot(q) / det;
    return u >= -margin && v >= -margin && u + v <= 1.0 + margin && t >= 0.0 ? t : unlimited;
}

/// The nearest hit of all triangles whose corners are defined.
double hitOfAll(const GridTerrainTileData & data, const Ray & ray, double margin = 1e-9) {
    double nearest = unlimited;
    for (unsigned y = 0; y + 1 < data.cells(); ++y)
        for (unsigned x = 0; x + 1 < data.cells(); ++x) {
            const Point p00 = sampleOf(data, x, y), p10 = sampleOf(data, x + 1, y);
            const Point p01 = sampleOf(data, x, y + 1), p11 = sampleOf(data, x + 1, y + 1);
            if (p10.z == 0.0 || p01.z == 0.0) continue;
            if (p00.z != 0.0) nearest = std::min(nearest, hitOf(ray, p00, p10, p01, margin));
            if (p11.z != 0.0) nearest = std::min(nearest, hitOf(ray, p01, p10, p11, margin));
        }
    return nearest;
}

} // namespace

TEST(GridTerrainTileData, HeightAtASampleIsTheSample) {
    std::mt19937 random(1);
    const auto data = tileOf(2, 3, randomHeights(random, 2, 0, 65535));
    for (unsigned y = 0; y < data->cells(); ++y)
        for (unsigned x = 0; x < data->cells(); ++x) {
            const Point p = sampleOf(*data, x, y);
            EXPECT_EQ(p.z, data->calculateVerticalRayIntersection(p.x, p.y)) << x << ", " << y;
        }
}

TEST(GridTerrainTileData, CellIsDividedFromItsLowRightToItsHighLeftCorner) {
    // One cell: 10 20
    //           30 80, on the diagonal from 20 to 30 lies 25.
    MemoryGrid grid;
    grid.level = 1;
    grid.depth = 0;
    grid.sample = [](unsigned, unsigned x, unsigned y) -> std::uint16_t {
        return x == 0 ? (y == 0 ? 10 : 30) : x == 1 ? (y == 0 ? 20 : 80) : 1;
    };
    const MemoryGridTileData data(grid, {0, 0, 0});
    EXPECT_DOUBLE_EQ(25.0, data.calculateVerticalRayIntersection(0.5, 0.5));
    EXPECT_DOUBLE_EQ(10.0 + 0.25 * 10.0 + 0.5 * 20.0, data.calculateVerticalRayIntersection(0.25, 0.5));
    EXPECT_DOUBLE_EQ(80.0 - 0.25 * 50.0 - 0.5 * 60.0, data.calculateVerticalRayIntersection(0.75, 0.5));
}

TEST(GridTerrainTileData, HeightIsNegativeInfinityBesideTheTileAndForWhatIsNoNumber) {
    const auto data = tileOf(1, 1, std::vector<std::uint16_t>(9, 5));
    EXPECT_EQ(5.0, data->calculateVerticalRayIntersection(16.0, 32.0));
    EXPECT_EQ(5.0, data->calculateVerticalRayIntersection(20.0, 36.0)) << "the far corner belongs to it";
    const double beyond = std::nextafter(20.0, 21.0), before = std::nextafter(16.0, 15.0);
    const std::vector<std::array<double, 2>> outside{{before, 33.0},    {beyond, 33.0},      {17.0, 31.9},
                                                     {17.0, 36.1},      {s_nan, 33.0},       {17.0, s_nan},
                                                     {unlimited, 33.0}, {-unlimited, 33.0},  {17.0, 1e300},
                                                     {17.0, -1e300},    {4294967313.0, 33.0}};
    for (const auto & [x, y] : outside)
        EXPECT_EQ(-unlimited, data->calculateVerticalRayIntersection(x, y)) << x << ", " << y;
}

TEST(GridTerrainTileData, UndefinedCornerTakesTheHeightsOfItsTriangles) {
    // 0 4    The low triangle has no corner at the low left; the high one is whole.
    // 4 4
    const auto data = tileOf(1, 0, {0, 4, 4, 4, 4, 4, 4, 4, 4});
    EXPECT_EQ(-unlimited, data->calculateVerticalRayIntersection(8.0, 16.0));
    EXPECT_EQ(-unlimited, data->calculateVerticalRayIntersection(8.3, 16.3));
    EXPECT_EQ(-unlimited, data->calculateVerticalRayIntersection(8.5, 16.0));
    EXPECT_DOUBLE_EQ(4.0, data->calculateVerticalRayIntersection(8.7, 16.7));
    EXPECT_DOUBLE_EQ(4.0, data->calculateVerticalRayIntersection(8.3, 16.7)) << "on the diagonal";
}

TEST(GridTerrainTileData, SampleAmidUndefinedOnesHasItsHeight) {
    const auto data = tileOf(1, 0, {0, 0, 0, 0, 7, 0, 0, 0, 0});
    EXPECT_EQ(7.0, data->calculateVerticalRayIntersection(9.0, 17.0));
    EXPECT_EQ(-unlimited, data->calculateVerticalRayIntersection(9.001, 17.0));
}

TEST(GridTerrainTileData, RayMeetsTheNearestOfAllTriangles) {
    constexpr unsigned seed = 7;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    unsigned hits = 0;
    for (unsigned i = 0; i < 4000; ++i) {
        const unsigned level = 1 + random() % 4, depth = random() % 4;
        const auto data = tileOf(level, depth, randomHeights(random, level, i % 3 * 15, i % 2 ? 65535 : 40));
        const double side = double(data->cells() - 1) * data->step(), scale = i % 2 ? 65535.0 : 40.0;
        const Point middle((8 + 0.5 * (data->cells() - 1)) * data->step(),
                           (16 + 0.5 * (data->cells() - 1)) * data->step(), 0.0);
        const Point origin =
            middle + Point(unit(random) * side, unit(random) * side, unit(random) * scale * 2);
        const Point target = middle + Point(unit(random) * side * 0.6, unit(random) * side * 0.6,
                                            (unit(random) + 1) * scale / 2);
        const Ray ray(origin, (target - origin) * std::pow(10.0, unit(random) * 6.0));
        Point p;
        const double expected = hitOfAll(*data, ray, 0.0);
        // With a margin on either side: what decides about a hit there is rounding.
        if (expected != hitOfAll(*data, ray, 1e-9) || expected != hitOfAll(*data, ray, -1e-9)) continue;
        const bool isHit = data->calculateRayIntersection(ray, p);
        ASSERT_EQ(expected < unlimited, isHit) << "ray " << i;
        if (!isHit) continue;
        ++hits;
        const Point wanted = ray.point(expected);
        EXPECT_LT((p - wanted).length(), 1e-6 * (scale + side)) << "ray " << i;
        EXPECT_NEAR(data->calculateVerticalRayIntersection(p.x, p.y), p.z, 1e-3) << "ray " << i;
    }
    EXPECT_GT(hits, 1000U);
}

TEST(GridTerrainTileData, NoRayPassesBetweenTriangles) {
    // From above to below, through samples, edges and the diagonal: where the tile is defined, each ray hits.
    std::mt19937 random(11);
    for (unsigned i = 0; i < 3000; ++i) {
        const auto data = tileOf(3, random() % 3, randomHeights(random, 3, 0, 65535));
        const double step = data->step();
        const auto position = [&](unsigned first) {
            return (first + (random() % 33) / 4.0) * step; // samples, and quarters between them
        };
        const Point from(position(8), position(16), 65536.0), to(position(8), position(16), 0.0);
        Point p;
        ASSERT_TRUE(data->calculateRayIntersection(Ray(from, to - from), p)) << i;
        EXPECT_NEAR(data->calculateVerticalRayIntersection(std::clamp(p.x, 8 * step, 16 * step),
                                                           std::clamp(p.y, 16 * step, 24 * step)),
                    p.z, 1e-3);
    }
}

TEST(GridTerrainTileData, VerticalRaysMeetTheHeightFromEitherSide) {
    std::mt19937 random(3);
    const auto data = tileOf(3, 2, randomHeights(random, 3, 10, 65535));
    for (unsigned i = 0; i <= 32; ++i)
        for (unsigned j = 0; j <= 32; ++j) {
            const double x = 32.0 + i, y = 64.0 + j;
            const double height = data->calculateVerticalRayIntersection(x, y);
            Point down, up;
            const bool fromAbove = data->calculateRayIntersection(Ray({x, y, 1e6}, {0, 0, -3}), down);
            const bool fromBelow = data->calculateRayIntersection(Ray({x, y, -1e6}, {0, 0, 0.1}), up);
            EXPECT_EQ(fromAbove, fromBelow);
            EXPECT_FALSE(fromAbove && !(height > 0.0));
            if (!fromAbove) continue;
            EXPECT_NEAR(height, down.z, 1e-4);
            EXPECT_NEAR(height, up.z, 1e-4);
        }
}

TEST(GridTerrainTileData, RayPointsForwards) {
    const auto data = tileOf(1, 0, std::vector<std::uint16_t>(9, 100));
    Point p;
    EXPECT_FALSE(data->calculateRayIntersection(Ray({9, 17, 200}, {0, 0, 1}), p));
    EXPECT_FALSE(data->calculateRayIntersection(Ray({9, 17, 50}, {0, 0, -1}), p));
    EXPECT_TRUE(data->calculateRayIntersection(Ray({9, 17, 100}, {0, 0, 1}), p)) << "begins on the surface";
    ASSERT_TRUE(data->calculateRayIntersection(Ray({-11, -3, 110}, {1, 1, -0.5}), p));
    EXPECT_LT((p - Point(9, 17, 100)).length(), 1e-9);
}

TEST(GridTerrainTileData, RayWithoutDirectionOrNumbersMisses) {
    const auto data = tileOf(2, 0, std::vector<std::uint16_t>(25, 100));
    Point p;
    for (const Ray & ray :
         {Ray({10, 18, 200}, {0, 0, 0}), Ray({s_nan, 18, 200}, {0, 0, -1}),
          Ray({10, 18, 200}, {0, s_nan, -1}), Ray({10, 18, unlimited}, {0, 0, -1}),
          Ray({10, 18, 200}, {0, 0, -unlimited}), Ray({1e300, 18, 200}, {0, 0, -1}),
          Ray({10, -1e300, 200}, {0, 1, 0}), Ray({1e308, 1e308, 1e308}, {-1e-300, -1e308, 1e308})})
        EXPECT_FALSE(data->calculateRayIntersection(ray, p));
    // However long or short the direction is.
    for (const double length : {1e-300, 1e-160, 1.0, 1e160, 1e300}) {
        ASSERT_TRUE(data->calculateRayIntersection(Ray({10, 18, 200}, {0, 0, -length}), p)) << length;
        EXPECT_NEAR(100.0, p.z, 1e-6);
    }
}

TEST(GridTerrainTileData, FarOriginMovesTheHitByRoundingsAlone) {
    const auto data = tileOf(3, 0, std::vector<std::uint16_t>(81, 100));
    Point p;
    const Point target(12.3, 20.7, 100.0), away(1e7, -3e7, 2e7);
    ASSERT_TRUE(data->calculateRayIntersection(Ray(target + away, -away), p));
    EXPECT_LT((p - target).length(), 1e-6);
}
