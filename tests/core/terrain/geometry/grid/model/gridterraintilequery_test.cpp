#include "core/terrain/geometry/grid/model/gridterraintilequery.h"

#include <algorithm>
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
using Key = MemoryGrid::Key;
using Point = NBX::Vector3Base<double>;

namespace {

constexpr double s_infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
const wchar_t * const s_incomplete =
    L"a part of the terrain cannot be read: coarser heights answer in its place";

unsigned hashOf(unsigned a, unsigned b, unsigned c, unsigned d) {
    unsigned h = a * 0x9e3779b1U ^ b * 0x85ebca6bU ^ c * 0xc2b2ae35U ^ d * 0x27d4eb2fU;
    h ^= h >> 15U;
    h *= 0x2c1b3c6dU;
    return h ^ h >> 13U;
}

/// Heights and kinds of tiles at random: a third of the places has no detail of its own, a tenth has nothing.
MemoryGrid randomGrid(unsigned seed, unsigned level, unsigned depth) {
    MemoryGrid grid;
    grid.level = level;
    grid.depth = depth;
    grid.sample = [=](unsigned d, unsigned x, unsigned y) -> std::uint16_t {
        if (hashOf(seed, x / 4, y / 4, 77) % 13 == 0) return 0;
        return static_cast<std::uint16_t>(1000 + hashOf(seed, x, y, d) % 300 + x * 20 + y * 10);
    };
    grid.kind = [=](const Key & key) {
        const unsigned dice = hashOf(seed, key.x, key.y, key.depth) % 10;
        return dice == 0 ? 0U : dice < 4 ? 1U : 2U;
    };
    return grid;
}

/// The heights that are to answer: those of the tile `data` for the place of the tile `place`.
struct Leaf {
    Key data, place;
};

/// Goes through the tree that a grid describes, without any tile.
void collectLeaves(MemoryGridState & state, const Key & data, const Key & place, std::vector<Leaf> & leaves) {
    std::array<unsigned, 4> kinds{};
    for (unsigned i = 0; i < 4 && data == place && place.depth > 0; ++i)
        kinds[i] = state.kindOf(state.childOf(place, i));
    if (*std::max_element(kinds.begin(), kinds.end()) < 2) {
        leaves.push_back({data, place});
        return;
    }
    for (unsigned i = 0; i < 4; ++i) {
        const Key child = state.childOf(place, i);
        if (kinds[i] > 0) collectLeaves(state, kinds[i] == 1 ? data : child, child, leaves);
    }
}

std::vector<Leaf> leavesOf(const MemoryGridTerrain & terrain) {
    std::vector<Leaf> leaves;
    const Key root{terrain.state().grid.depth, 0, 0};
    collectLeaves(terrain.state(), root, root, leaves);
    return leaves;
}

struct QuerySquare {
    double x, y, side;
};

QuerySquare squareOf(const MemoryGrid & grid, const Key & key) {
    const double step = 1U << key.depth;
    return {key.x * step, key.y * step, step * (1U << grid.level)};
}

/// The nearest hit among the triangles of all leaves; infinite without any. As a parameter of the ray.
double hitOfAll(const MemoryGridTerrain & terrain, const Ray & ray, double margin) {
    const MemoryGrid & grid = terrain.state().grid;
    double nearest = s_infinity;
    for (const Leaf & leaf : leavesOf(terrain)) {
        const MemoryGridTileData data(grid, leaf.data);
        const QuerySquare place = squareOf(grid, leaf.place);
        const double step = data.step();
        const auto sample = [&](unsigned x, unsigned y) {
            return Point((data.tileX() + x) * step, (data.tileY() + y) * step, data.value(x, y));
        };
        const auto test = [&](const Point & a, const Point & b, const Point & c) {
            if (a.z == 0.0 || b.z == 0.0 || c.z == 0.0) return;
            const Point e1 = b - a, e2 = c - a, p = ray.getDirection().cross(e2);
            const double det = e1.dot(p);
            if (det == 0.0) return;
            const Point s = ray.getOrigin() - a, q = s.cross(e1);
            const double u = s.dot(p) / det, v = ray.getDirection().dot(q) / det, t = e2.dot(q) / det;
            if (u >= -margin && v >= -margin && u + v <= 1 + margin && t >= 0) nearest = std::min(nearest, t);
        };
        for (unsigned y = 0; y + 1 < data.cells(); ++y)
            for (unsigned x = 0; x + 1 < data.cells(); ++x) {
                const Point low = sample(x, y);
                if (low.x < place.x || low.y < place.y || low.x >= place.x + place.side ||
                    low.y >= place.y + place.side)
                    continue;
                test(low, sample(x + 1, y), sample(x, y + 1));
                test(sample(x, y + 1), sample(x + 1, y), sample(x + 1, y + 1));
            }
    }
    return nearest;
}

} // namespace

TEST(GridTerrainTileQuery, HeightIsThatOfTheFinestTileAtThePlace) {
    const RecordedReports reports;
    std::mt19937 random(5);
    unsigned defined = 0;
    for (unsigned seed = 0; seed < 60; ++seed) {
        const MemoryGridTerrain terrain(randomGrid(seed, 1 + seed % 3, seed % 4));
        const MemoryGrid & grid = terrain.state().grid;
        const auto leaves = leavesOf(terrain);
        for (unsigned i = 0; i < 100; ++i) {
            const double x = grid.cells() * (random() % 4096 + 0.5) / 4096.0;
            const double y = grid.cells() * (random() % 4096 + 0.5) / 4096.0;
            double expected = -s_infinity;
            for (const Leaf & leaf : leaves) {
                const QuerySquare place = squareOf(grid, leaf.place);
                if (x >= place.x && y >= place.y && x < place.x + place.side && y < place.y + place.side)
                    expected = MemoryGridTileData(grid, leaf.data).calculateVerticalRayIntersection(x, y);
            }
            ASSERT_EQ(expected, terrain.rootTile()->verticalRayIntersection(x, y, false)) << seed;
            defined += expected > 0.0;
        }
    }
    EXPECT_GT(defined, 3000U);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(GridTerrainTileQuery, RayMeetsTheNearestOfAllTilesAtTheirFinest) {
    const RecordedReports reports;
    std::mt19937 random(17);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    unsigned hits = 0;
    for (unsigned seed = 0; seed < 150; ++seed) {
        const MemoryGridTerrain terrain(randomGrid(seed, 1 + seed % 3, seed % 4));
        const double size = terrain.state().grid.cells();
        for (unsigned i = 0; i < 40; ++i) {
            const Point from((unit(random) * 3 - 1) * size, (unit(random) * 3 - 1) * size,
                             unit(random) * 5000);
            const Point to(unit(random) * size, unit(random) * size, 900 + unit(random) * 500);
            const Ray ray(from, to - from);
            const double expected = hitOfAll(terrain, ray, 0.0);
            if (expected != hitOfAll(terrain, ray, 1e-8) || expected != hitOfAll(terrain, ray, -1e-8))
                continue;
            Point p;
            ASSERT_EQ(expected < s_infinity, terrain.rootTile()->rayIntersection(ray, p, false)) << seed;
            if (expected == s_infinity) continue;
            ++hits;
            EXPECT_LT((p - ray.point(expected)).length(), 1e-6) << seed;
        }
    }
    EXPECT_GT(hits, 2000U);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(GridTerrainTileQuery, PickAndHeightAgree) {
    const MemoryGridTerrain terrain(randomGrid(4, 3, 2));
    for (double x = 0.21; x <= 32.0; x += 0.5)
        for (double y = 0.13; y <= 32.0; y += 0.5) {
            const double height = terrain.rootTile()->verticalRayIntersection(x, y, false);
            Point p(0.0, 0.0, -s_infinity);
            const bool isHit = terrain.rootTile()->rayIntersection(Ray({x, y, 1e6}, {0, 0, -1}), p, false);
            ASSERT_EQ(isHit, height > 0.0) << x << ", " << y;
            EXPECT_TRUE(!isHit || std::abs(p.z - height) < 1e-6) << x << ", " << y;
        }
}

/// Where boxes end the triangles decide, whatever was rounded on the way to the box.
TEST(GridTerrainTileQuery, RaysToTheCornersOfBoxesAreNotLost) {
    std::mt19937 random(11);
    std::uniform_real_distribution<> number(-1.0, 1.0);
    MemoryGrid grid;
    grid.level = 1;
    grid.depth = 3;
    // Each tile is a plane that ends at its corners; the highest of all is one point.
    grid.sample = [](unsigned, unsigned x, unsigned y) { return std::uint16_t(1000 + 7 * x + 3 * y); };
    const MemoryGridTerrain terrain(grid);
    terrain.loadAll();
    unsigned hits = 0;
    for (unsigned i = 0; i < 20000; ++i) {
        const unsigned x = random() % 17, y = random() % 17;
        const Point corner(x, y, 1000 + 7.0 * x + 3.0 * y);
        const Point from = corner + Point(number(random) * 300, number(random) * 300, 900 + number(random));
        const Ray ray(from, corner - from);
        const double all = hitOfAll(terrain, ray, 0.0);
        Point hit;
        if (all == s_infinity) continue;
        ++hits;
        EXPECT_TRUE(terrain.rootTile()->rayIntersection(ray, hit, true)) << x << ", " << y << ", " << i;
    }
    EXPECT_LT(10000U, hits);
}

TEST(GridTerrainTileQuery, SmallBoxFarAwayMayBeEnteredFirst) {
    // Low left only the far corner is defined, low right everything: for an eye in the south the low right
    // box is nearer in the plane, yet the ray meets the small one first, and only then the slope beside it.
    MemoryGrid grid;
    grid.level = 3;
    grid.depth = 1;
    grid.sample = [](unsigned, unsigned x, unsigned y) -> std::uint16_t {
        if (x > 8) return y <= 8 ? 290 : 0;
        return x >= 5 && y >= 5 && y <= 8 ? 300 : 0;
    };
    const MemoryGridTerrain terrain(grid);
    terrain.loadAll();
    const Point eye(2.5, -9.5, 301.0);
    ASSERT_EQ(terrain.rootTile()->child(1, false), terrain.rootTile()->distanceSortedChildren(eye).front());
    const Ray ray(eye, Point(7.5, 5.5, 300.0) - eye);
    Point p;
    ASSERT_TRUE(terrain.rootTile()->child(1, false)->rayIntersection(ray, p, false)) << "both are hit";
    EXPECT_GT(p.x, 8.0);
    ASSERT_TRUE(terrain.rootTile()->rayIntersection(ray, p, false));
    EXPECT_LT((p - Point(7.5, 5.5, 300.0)).length(), 1e-9);
}

TEST(GridTerrainTileQuery, HeightReadsOneTileOfEachLevel) {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 5;
    const MemoryGridTerrain terrain(grid);
    EXPECT_EQ(1U, terrain.state().totalLoads());
    EXPECT_EQ(1.0, terrain.rootTile()->verticalRayIntersection(77.3, 5.2, false));
    EXPECT_EQ(6U, terrain.state().totalLoads());
    for (unsigned depth = 0; depth <= 5; ++depth)
        EXPECT_EQ(1U, terrain.state().loads.count({depth, 77U >> depth >> 2 << 2, 5U >> depth >> 2 << 2}));
    EXPECT_EQ(1.0, terrain.rootTile()->verticalRayIntersection(77.4, 5.1, false));
    EXPECT_EQ(6U, terrain.state().totalLoads()) << "once";
    // What was evicted above is not needed again.
    static_cast<MemoryGridTile &>(*terrain.tile({3, 8, 0})).unloadOwnData();
    EXPECT_EQ(1.0, terrain.rootTile()->verticalRayIntersection(77.4, 5.1, false));
    EXPECT_EQ(6U, terrain.state().totalLoads());
}

TEST(GridTerrainTileQuery, RayReadsWhatItCrossesUpToTheHit) {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 4;
    grid.sample = [](unsigned, unsigned x, unsigned) {
        return static_cast<std::uint16_t>(x < 32 ? 10 : 200);
    };
    const MemoryGridTerrain terrain(grid);
    Point p;
    // Along x, above the low half, into the step; y stays in one row of tiles.
    ASSERT_TRUE(terrain.rootTile()->rayIntersection(Ray({-50, 5, 100}, {1, 0, 0}), p, false));
    EXPECT_GT(p.x, 31.0);
    EXPECT_LT(p.x, 32.0);
    for (const auto & [key, count] : terrain.state().loads) {
        EXPECT_EQ(1U, count);
        EXPECT_EQ(5U >> key.depth >> 2 << 2, key.y) << "another row";
        EXPECT_LT(key.x << key.depth, 32U) << "behind the hit";
    }
    // Low tiles whose box the ray passes above are read, for their box, and none of their children.
    EXPECT_EQ(1U + 1U + 2U + 2U + 2U, terrain.state().totalLoads());
}

TEST(GridTerrainTileQuery, NothingIsReadWhenOnlyWhatIsLoadedCounts) {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 2;
    grid.sample = [](unsigned depth, unsigned, unsigned) { return static_cast<std::uint16_t>(10 + depth); };
    const MemoryGridTerrain terrain(grid);
    Point p;
    const auto heights = [&] {
        EXPECT_TRUE(terrain.rootTile()->rayIntersection(Ray({1.3, 1.4, 99}, {0, 0, -1}), p, true));
        const double height = terrain.rootTile()->verticalRayIntersection(1.3, 1.4, true);
        EXPECT_NEAR(p.z, height, 1e-9);
        return height;
    };
    EXPECT_DOUBLE_EQ(12.0, heights());
    // One child alone does not count, as it is not drawn either.
    terrain.tile({1, 0, 0});
    EXPECT_DOUBLE_EQ(12.0, heights());
    for (const Key & key : {Key{1, 4, 0}, Key{1, 0, 4}, Key{1, 4, 4}})
        terrain.tile(key);
    EXPECT_DOUBLE_EQ(11.0, heights());
    for (const Key & key : {Key{0, 0, 0}, Key{0, 4, 0}, Key{0, 0, 4}, Key{0, 4, 4}})
        terrain.tile(key);
    EXPECT_DOUBLE_EQ(10.0, heights());
    static_cast<MemoryGridTile &>(*terrain.tile({0, 4, 4})).unloadOwnData();
    EXPECT_DOUBLE_EQ(11.0, heights());
    terrain.rootTile()->unloadData();
    const unsigned loads = terrain.state().totalLoads();
    EXPECT_FALSE(terrain.rootTile()->rayIntersection(Ray({1.3, 1.4, 99}, {0, 0, -1}), p, true));
    EXPECT_EQ(-s_infinity, terrain.rootTile()->verticalRayIntersection(1.3, 1.4, true));
    EXPECT_EQ(loads, terrain.state().totalLoads());
    EXPECT_EQ(0U, terrain.state().requests);
}

TEST(GridTerrainTileQuery, UndefinedSampleOfAFineTileIsNotFilledFromAbove) {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 1;
    grid.sample = [](unsigned depth, unsigned x, unsigned y) -> std::uint16_t {
        return depth == 0 && x == 2 && y == 2 ? 0 : 50;
    };
    const MemoryGridTerrain terrain(grid);
    EXPECT_EQ(50.0, terrain.rootTile()->verticalRayIntersection(2.0, 2.0, true))
        << "the coarse tile has a height";
    EXPECT_EQ(-s_infinity, terrain.rootTile()->verticalRayIntersection(2.0, 2.0, false));
}

TEST(GridTerrainTileQuery, PositionBetweenTwoTilesIsTheUpperOnes) {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 1;
    grid.kind = [](const Key & key) { return key.x == 0 || key.y == 0 ? 0U : 2U; };
    const MemoryGridTerrain terrain(grid);
    EXPECT_EQ(1.0, terrain.rootTile()->verticalRayIntersection(4.0, 4.0, false));
    EXPECT_EQ(-s_infinity, terrain.rootTile()->verticalRayIntersection(3.999, 4.0, false));
    EXPECT_EQ(-s_infinity, terrain.rootTile()->verticalRayIntersection(4.0, 3.999, false));
}

TEST(GridTerrainTileQuery, FinestLoadedTileStandsInForWhatCannotBeReadAndThatIsTold) {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 3;
    grid.sample = [](unsigned depth, unsigned, unsigned) { return static_cast<std::uint16_t>(10 + depth); };
    const MemoryGridTerrain terrain(grid);
    terrain.state().failing = {{0, 4, 4}, {1, 0, 8}};
    RecordedReports reports;
    EXPECT_EQ(11.0, terrain.rootTile()->verticalRayIntersection(5.5, 6.5, false));
    EXPECT_EQ(1U, reports.count(2, L"false", s_incomplete));
    EXPECT_EQ(10.0, terrain.rootTile()->verticalRayIntersection(3.5, 6.5, false)) << "its neighbour is fine";
    EXPECT_EQ(1U, reports.size());

    Point p;
    ASSERT_TRUE(terrain.rootTile()->rayIntersection(Ray({5.5, 6.5, 99}, {0, 0, -1}), p, false));
    EXPECT_EQ(11.0, p.z);
    EXPECT_EQ(2U, reports.size());
    ASSERT_TRUE(terrain.rootTile()->rayIntersection(Ray({2.5, 18.5, 99}, {0, 0, -1}), p, false));
    EXPECT_EQ(12.0, p.z) << "the tile above has two levels less";
    EXPECT_EQ(3U, reports.size());

    // Along both: the part that stands in is the failed tile's alone.
    ASSERT_TRUE(terrain.rootTile()->rayIntersection(Ray({-2, 6.5, 11.5}, {1, 0, -0.25}), p, false));
    EXPECT_NEAR(10.0, p.z, 1e-9) << "before the failed tile";
    ASSERT_TRUE(terrain.rootTile()->rayIntersection(Ray({-2, 6.5, 12.5}, {1, 0, -0.25}), p, false));
    EXPECT_NEAR(11.0, p.z, 1e-9);
    EXPECT_NEAR(4.0, p.x, 1e-6);

    // Where it can be read again it is.
    terrain.state().failing.clear();
    reports.clear();
    EXPECT_EQ(10.0, terrain.rootTile()->verticalRayIntersection(5.5, 6.5, false));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(GridTerrainTileQuery, TileWhoseDataWereEvictedAndCannotComeBackIsReplaced) {
    MemoryGrid grid;
    grid.level = 2;
    grid.depth = 1;
    grid.sample = [](unsigned depth, unsigned, unsigned) { return static_cast<std::uint16_t>(10 + depth); };
    const MemoryGridTerrain terrain(grid);
    terrain.loadAll();
    static_cast<MemoryGridTile &>(*terrain.tile({0, 4, 0})).unloadOwnData();
    terrain.state().failing = {{0, 4, 0}};
    RecordedReports reports;
    EXPECT_EQ(11.0, terrain.rootTile()->verticalRayIntersection(5.5, 1.5, false));
    EXPECT_EQ(1U, reports.count(s_incomplete));
}

TEST(GridTerrainTileQuery, TilesBelowTheRootAnswerForTheirPlace) {
    const MemoryGridTerrain terrain(randomGrid(9, 2, 3));
    for (const Key & key : {Key{2, 4, 0}, Key{1, 4, 4}, Key{0, 12, 16}}) {
        const auto tile = terrain.tile(key);
        if (!tile) continue;
        const QuerySquare place = squareOf(terrain.state().grid, key);
        const double x = place.x + place.side * 0.3, y = place.y + place.side * 0.6;
        EXPECT_EQ(terrain.rootTile()->verticalRayIntersection(x, y, false),
                  tile->verticalRayIntersection(x, y, false));
        EXPECT_EQ(-s_infinity, tile->verticalRayIntersection(place.x - 1.0, y, false));
        EXPECT_EQ(-s_infinity, tile->verticalRayIntersection(x, place.y + place.side + 1.0, false));
    }
}

TEST(GridTerrainTileQuery, PositionsAnywhereAndRaysWithoutNumbersHaveNoAnswer) {
    const RecordedReports reports;
    const MemoryGridTerrain terrain(randomGrid(2, 2, 2));
    const auto & root = *terrain.rootTile();
    for (const double bad : {notANumber, s_infinity, -s_infinity, 1e300, -1e300, -0.001, 16.001}) {
        EXPECT_EQ(-s_infinity, root.verticalRayIntersection(bad, 3.0, false)) << bad;
        EXPECT_EQ(-s_infinity, root.verticalRayIntersection(3.0, bad, false)) << bad;
        Point p;
        EXPECT_FALSE(root.rayIntersection(Ray({bad, 3, 5000}, {0, 0, -1}), p, false)) << bad;
        EXPECT_FALSE(root.rayIntersection(Ray({3, bad, 5000}, {0, 0, -1}), p, false)) << bad;
    }
    Point p;
    EXPECT_FALSE(root.rayIntersection(Ray({3, 3, notANumber}, {0, 0, -1}), p, false));
    EXPECT_FALSE(root.rayIntersection(Ray({3, 3, 5000}, {0, 0, notANumber}), p, false));
    EXPECT_FALSE(root.rayIntersection(Ray({3, 3, 5000}, {0, 0, 0}), p, false));
    EXPECT_FALSE(root.rayIntersection(Ray({3, 3, 5000}, {s_infinity, 0, 0}), p, false));
    EXPECT_EQ(1U, terrain.state().totalLoads()) << "nothing is read for these";
    EXPECT_TRUE(reports.empty()) << reports;
}
