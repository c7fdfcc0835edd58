#include <zmt/core/terrain/geometry/tin/polygontriangulation.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include <nbx/scene/shape/polygonset.h>
#include <support/recordedreports.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

#include "support/testterrain.h"

using ZMT::CORE::PolygonTriangulation;
using ZMT::CORE::Terrain;
using Point = PolygonTriangulation::Point;
using Ring = PolygonTriangulation::Ring;
using Rings = std::vector<Ring>;

namespace {

Ring rectangle(double x0, double z0, double x1, double z1, double y = 0.0) {
    return {{x0, y, z0}, {x1, y, z0}, {x1, y, z1}, {x0, y, z1}};
}

Ring turned(Ring ring) {
    std::reverse(ring.begin(), ring.end());
    return ring;
}

/// Positive where the ring turns counter-clockwise in x and z.
double areaOf(const Ring & ring) {
    double sum = 0.0;
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const Point & a = ring[i];
        const Point & b = ring[(i + 1) % ring.size()];
        sum += (a.x - ring[0].x) * (b.z - ring[0].z) - (b.x - ring[0].x) * (a.z - ring[0].z);
    }
    return sum / 2.0;
}

std::vector<Ring> trianglesOf(const NBX::SO<NBX::PolygonSet> & set) {
    std::vector<Ring> result;
    for (unsigned i = 0; set && i < set->triangles(); ++i) {
        std::array<unsigned, 3> t;
        EXPECT_TRUE(set->triangle(i, t));
        Ring & triangle = result.emplace_back();
        for (const unsigned corner : t)
            triangle.push_back(set->newVertexIterator()->get(corner));
    }
    return result;
}

/// All triangles turn counter-clockwise.
double filledArea(const NBX::SO<NBX::PolygonSet> & set) {
    double sum = 0.0;
    for (const Ring & triangle : trianglesOf(set)) {
        EXPECT_GT(areaOf(triangle), 0.0);
        sum += areaOf(triangle);
    }
    return sum;
}

double filledArea(const Rings & rings) {
    return filledArea(PolygonTriangulation::triangulate(rings));
}

/// A star around a centre, the radius of each point drawn at random.
Ring star(std::mt19937 & random, const Point & center, unsigned points, double scale) {
    std::uniform_real_distribution<double> radius(0.2 * scale, scale);
    Ring ring;
    for (unsigned i = 0; i < points; ++i) {
        const double angle = 2.0 * std::numbers::pi * i / points, r = radius(random);
        ring.push_back(center + Point(std::cos(angle) * r, r, std::sin(angle) * r));
    }
    return ring;
}

TEST(PolygonTriangulation, ASquareIsTwoTriangles) {
    const auto set = PolygonTriangulation::triangulate({rectangle(0, 0, 2, 3, 7.0)});
    ASSERT_TRUE(set);
    EXPECT_EQ(2U, set->triangles());
    EXPECT_EQ(4U, set->newVertexIterator()->size());
    EXPECT_DOUBLE_EQ(6.0, filledArea(set));
    for (const Point & p : *set->newVertexIterator())
        EXPECT_EQ(7.0, p.y);
}

TEST(PolygonTriangulation, TheDirectionOfARingPlaysNoPart) {
    EXPECT_DOUBLE_EQ(6.0, filledArea({turned(rectangle(0, 0, 2, 3))}));
}

TEST(PolygonTriangulation, ARingMayRepeatItsPoints) {
    Ring ring = rectangle(0, 0, 2, 3);
    ring.insert(ring.begin() + 1, ring[1]);
    ring.push_back(ring.front());
    EXPECT_DOUBLE_EQ(6.0, filledArea({ring}));
}

TEST(PolygonTriangulation, WhatHasNoAreaGivesNull) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        const char * name;
        Rings rings;
    } rows[] = {{"no rings", {}},
                {"an empty ring", {{}}},
                {"one point", {{{1, 1, 1}}}},
                {"two points", {{{0, 0, 0}, {1, 1, 1}}}},
                {"one point, three times", {{{1, 1, 1}, {1, 1, 1}, {1, 1, 1}}}},
                {"points on a line along x", {{{0, 0, 5}, {1, 0, 5}, {2, 0, 5}}}},
                {"points on a slanting line", {{{0, 0, 0}, {1, 0, 1}, {2, 0, 2}}}},
                {"there and back", {{{0, 0, 0}, {2, 0, 1}, {5, 0, 0}, {2, 0, 1}}}},
                {"not a number", {{{0, 0, 0}, {1, nan, 0}, {0, 0, 1}}}},
                {"too large", {{{-1e308, 0, 0}, {1e308, 0, 0}, {0, 0, 1e308}}}}};
    for (const auto & row : rows)
        EXPECT_FALSE(PolygonTriangulation::triangulate(row.rings)) << row.name;
}

TEST(PolygonTriangulation, HolesAreFurtherRings) {
    for (const bool turn : {false, true}) {
        const Ring hole = rectangle(1, 1, 3, 2);
        EXPECT_DOUBLE_EQ(14.0, filledArea({rectangle(0, 0, 4, 4), turn ? turned(hole) : hole}));
    }
    // An island in the hole.
    EXPECT_DOUBLE_EQ(100.0 - 64.0 + 4.0,
                     filledArea({rectangle(0, 0, 10, 10), rectangle(1, 1, 9, 9), rectangle(4, 4, 6, 6)}));
}

TEST(PolygonTriangulation, PartsMayTouchAlongAnEdge) {
    EXPECT_DOUBLE_EQ(12.0, filledArea({rectangle(0, 0, 2, 3), rectangle(2, 0, 4, 3)}));
}

TEST(PolygonTriangulation, ARingTwiceIsNothing) {
    EXPECT_FALSE(PolygonTriangulation::triangulate({rectangle(0, 0, 2, 3), rectangle(0, 0, 2, 3)}));
}

TEST(PolygonTriangulation, ConcaveRingsKeepTheirShape) {
    // A comb with ten teeth.
    Ring comb;
    for (int i = 0; i < 10; ++i)
        comb.insert(comb.end(),
                    {{2.0 * i, 0, 0}, {2.0 * i, 0, 10}, {2.0 * i + 1, 0, 10}, {2.0 * i + 1, 0, 0}});
    comb.insert(comb.end(), {{19, 0, -1}, {0, 0, -1}});
    EXPECT_NEAR(19.0 + 100.0, filledArea({comb}), 1e-9);
}

TEST(PolygonTriangulation, ARingThatCrossesItselfEnds) {
    const double area = filledArea({{{0, 0, 0}, {2, 0, 2}, {2, 0, 0}, {0, 0, 2}}});
    EXPECT_NEAR(2.0, area, 1e-6);
}

TEST(PolygonTriangulation, StarsKeepTheirArea) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (const double scale : {1e-3, 1.0, 1e5})
        for (unsigned points = 3; points < 120; points += 9) {
            const Point center(5e5, 100.0, 3.1e6);
            const Ring ring = star(random, center, points, scale);
            Ring hole;
            for (const Point & p : ring)
                hole.push_back(center + (p - center) * 0.5);
            const double area = areaOf(ring);
            // Coordinates are exact to 1e-9 along the outline.
            EXPECT_NEAR(area, filledArea({ring}), 1e-8 * scale + 1e-9 * area);
            EXPECT_NEAR(area - areaOf(hole), filledArea({ring, turned(hole)}), 1e-8 * scale + 1e-9 * area);
        }
}

class DrapeTest : public testing::Test {
protected:
    static double heightAt(double x, double z) { return 0.5 * x + 0.25 * z + 3.0; }

    RecordedReports reports_;
    /// A slope over 0..40 by 0..40, with a hole in it at 30, 30.
    NBX::SO<ZMT::CORE::GridData> grid_ =
        TestTerrain::grid({41, 41, 0.0, 0.0, 1.0, 1.0}, [](unsigned x, unsigned y) {
            return x == 30 && y == 30 ? TestTerrain::s_undefined : heightAt(x, y);
        });
    NBX::SO<Terrain> terrain_ = new Terrain(grid_.get(), nullptr);
    Point origin_ = terrain_->origin();
};

TEST_F(DrapeTest, LiesOnTheGround) {
    const auto set = PolygonTriangulation::drape(
        *terrain_, {rectangle(5, 5, 25, 20), turned(rectangle(10, 10, 15, 15))}, 2.0, 0.5);
    ASSERT_TRUE(set);
    EXPECT_NEAR(300.0 - 25.0, filledArea(set), 1e-9);
    EXPECT_GT(set->triangles(), 100U);
    for (const Point & p : *set->newVertexIterator())
        EXPECT_NEAR(terrain_->calculateHeight(p, false) + 0.5, p.y, 1e-9);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(DrapeTest, NoEdgeIsMuchLongerThanTheSpacing) {
    const auto set = PolygonTriangulation::drape(*terrain_, {rectangle(5, 5, 25, 20)}, 2.0, 0.0);
    for (const Ring & triangle : trianglesOf(set))
        for (unsigned k = 0; k < 3; ++k) {
            const Point side = triangle[k] - triangle[(k + 1) % 3];
            EXPECT_LT(std::hypot(side.x, side.z), 2.0 * 2.0);
        }
}

TEST_F(DrapeTest, UndefinedGroundIsLeftOut) {
    const auto set = PolygonTriangulation::drape(*terrain_, {rectangle(20, 20, 38, 38)}, 1.0, 0.0);
    ASSERT_TRUE(set);
    EXPECT_LT(filledArea(set), 18.0 * 18.0);
    EXPECT_GT(filledArea(set), 18.0 * 18.0 - 30.0);
    const auto beyond = PolygonTriangulation::drape(*terrain_, {rectangle(100, 100, 110, 110)}, 1.0, 0.0);
    EXPECT_FALSE(beyond);
}

TEST_F(DrapeTest, SmallAreasFarFromOneAnotherAreFewPoints) {
    const Rings rings = {rectangle(5, 5, 10, 10), rectangle(5e8, 5e4, 5e8 + 5, 5e4 + 5)};
    EXPECT_LT(PolygonTriangulation::pointsToDrape(rings, 1.0), 1e5);
    EXPECT_TRUE(PolygonTriangulation::drape(*terrain_, rings, 1.0, 0.0));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(DrapeTest, NotManyMorePointsAreMadeThanForetold) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (const double scale : {0.5, 2.0, 9.0})
        for (unsigned points = 3; points < 60; points += 3)
            for (const double spacing : {0.2, 1.0, 50.0}) {
                const Rings rings = {star(random, {15, 0, 15}, points, scale)};
                const auto set = PolygonTriangulation::drape(*terrain_, rings, spacing, 0.0);
                ASSERT_TRUE(set);
                EXPECT_LE(set->newVertexIterator()->size(),
                          1.5 * PolygonTriangulation::pointsToDrape(rings, spacing));
            }
    EXPECT_EQ(0.0, PolygonTriangulation::pointsToDrape({}, 1.0));
    EXPECT_EQ(0.0, PolygonTriangulation::pointsToDrape({rectangle(5, 5, 10, 10)}, 0.0));
}

TEST_F(DrapeTest, ASpacingThatCannotBeIsReported) {
    for (const double spacing : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(), 1e-6}) {
        reports_.clear();
        EXPECT_FALSE(PolygonTriangulation::drape(*terrain_, {rectangle(5, 5, 25, 20)}, spacing, 0.0))
            << spacing;
        EXPECT_EQ(1U, reports_.size()) << spacing;
    }
    reports_.clear();
    EXPECT_TRUE(PolygonTriangulation::drape(*terrain_, {rectangle(5, 5, 25, 20)},
                                            std::numeric_limits<double>::infinity(), 0.0));
}

} // namespace
