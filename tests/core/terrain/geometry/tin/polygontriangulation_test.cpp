#include <zmt/core/terrain/geometry/tin/polygontriangulation.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include <nbx/scene/shape/polygonset.h>
#include <support/recordedreports.h>

#include "support/trianglerings.h"

using ZMT::CORE::PolygonTriangulation;

namespace {

using namespace trianglerings;
using trianglerings::filledArea;

double filledArea(const Rings & rings) {
    return filledArea(PolygonTriangulation::triangulate(rings));
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

} // namespace
