#include <nbx/math/algorithmimpl.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/constantiterator.h>
#include <nbx/math/bounds.h>
#include <nbx/object/so.h>

namespace {

using namespace NBX;
using A = AlgorithmImpl;
using V = A::Vector;
using M = A::Matrix;
using Loop = A::Loop;

constexpr double s_far = 5800000.0;
constexpr double s_nan = std::numeric_limits<double>::quiet_NaN();
constexpr double s_infinity = std::numeric_limits<double>::infinity();

double edge(const A::Rectangle & r, unsigned from, unsigned to) {
    return (r[to] - r[from]).length();
}

double area(const A::Rectangle & r) {
    return edge(r, 0, 1) * edge(r, 1, 2);
}

/// How far `p` lies outside of a rectangle, in the plane.
double outside(const A::Rectangle & r, const V & p) {
    double most = 0.0;
    for (unsigned i = 0; i < 4; ++i)
        most = std::max(most, (p - r[i]).dot(A::getEdgeNormal(r[i], r[(i + 1) % 4])));
    return most;
}

/// The smallest area over all directions between two of the points.
double smallestAreaOfAllDirections(const Loop & points) {
    double best = s_infinity;
    for (const V & a : points)
        for (const V & b : points) {
            const V along = V(b.x - a.x, 0, b.z - a.z).normalized(), across(-along.z, 0, along.x);
            if (along == V()) continue;
            double box[4] = {s_infinity, -s_infinity, s_infinity, -s_infinity};
            for (const V & p : points) {
                box[0] = std::min(box[0], p.dot(along));
                box[1] = std::max(box[1], p.dot(along));
                box[2] = std::min(box[2], p.dot(across));
                box[3] = std::max(box[3], p.dot(across));
            }
            best = std::min(best, (box[1] - box[0]) * (box[3] - box[2]));
        }
    return best;
}

V randomPoint(std::mt19937 & random, double size = 1.0) {
    std::uniform_real_distribution<double> uniform(-size, size);
    const double x = uniform(random), y = uniform(random);
    return {x, y, uniform(random)};
}

Loop randomConvexLoop(std::mt19937 & random, unsigned corners) {
    std::vector<double> angles(corners);
    for (double & angle : angles)
        angle = std::uniform_real_distribution<double>(0.0, 2.0 * std::numbers::pi)(random);
    std::sort(angles.begin(), angles.end());
    const V centre = randomPoint(random);
    Loop loop;
    for (const double angle : angles)
        loop.push_back(centre + V(std::cos(angle), 0, std::sin(angle)));
    return loop;
}

bool contains(const Loop & loop, const V & p) {
    for (std::size_t i = 0; i < loop.size(); ++i) {
        const V a = loop[i], b = loop[(i + 1) % loop.size()];
        if ((b.x - a.x) * (p.z - a.z) - (b.z - a.z) * (p.x - a.x) < 0.0) return false;
    }
    return true;
}

TEST(RotateToXZPlane, NormalsComeToYAndLengthsStay) {
    std::mt19937 random(1);
    for (int i = 0; i < 1000; ++i) {
        const V normal = randomPoint(random) * std::pow(10.0, i % 41 - 20);
        const M m = A::rotateToXZPlane(normal);
        EXPECT_NEAR((m * normal.normalized() - V(0, 1, 0)).length(), 0.0, 1e-14);
        const M unit = m * m.transposed();
        for (unsigned k = 0; k < 16; ++k)
            EXPECT_NEAR(unit.rows()[k], k % 5 == 0 ? 1.0 : 0.0, 1e-14);
        EXPECT_NEAR((m * V(1, 0, 0)).cross(m * V(0, 1, 0)).dot(m * V(0, 0, 1)), 1.0, 1e-14) << "no mirror";
    }
}

TEST(RotateToXZPlane, UprightAndUpsideDownNeedNoAxis) {
    EXPECT_EQ(A::rotateToXZPlane(V(0, 7, 0)), M());
    EXPECT_EQ(A::rotateToXZPlane(V(0, -7, 0)) * V(1, 2, 3), V(1, -2, -3));
    const M nearly = A::rotateToXZPlane(V(1e-12, -1, 0));
    EXPECT_NEAR((nearly * V(0, -1, 0) - V(0, 1, 0)).length(), 0.0, 1e-11);
}

TEST(RotateToXZPlane, TurnsTheShortestWay) {
    EXPECT_NEAR((A::rotateToXZPlane(V(1, 0, 0)) * V(0, 1, 0) - V(-1, 0, 0)).length(), 0.0, 1e-15);
    EXPECT_NEAR((A::rotateToXZPlane(V(1, 0, 0)) * V(0, 0, 1) - V(0, 0, 1)).length(), 0.0, 1e-15);
}

TEST(RotateToXZPlane, WhatHasNoDirectionStays) {
    for (const V & normal : {V(), V(s_nan, 1, 0), V(0, s_infinity, 0), V(0, 0, s_nan)})
        EXPECT_EQ(A::rotateToXZPlane(normal), M());
    EXPECT_NEAR((A::rotateToXZPlane(V(0, 0, 1e-300)) * V(0, 0, 1) - V(0, 1, 0)).length(), 0.0, 1e-15);
    EXPECT_NEAR((A::rotateToXZPlane(V(1e300, 0, 0)) * V(1, 0, 0) - V(0, 1, 0)).length(), 0.0, 1e-15);
}

TEST(Transform, EveryPointIsTaken) {
    const SO<Array<V>> points(new Array<V>(std::vector<V>{V(1, 2, 3), V(4, 5, 6)}));
    const auto moved = A::transform(points.get(), M::translation(V(10, 20, 30)));
    ASSERT_EQ(moved->size(), 2U);
    EXPECT_EQ(moved->get(0), V(11, 22, 33));
    EXPECT_EQ(moved->get(1), V(14, 25, 36));
    EXPECT_EQ(points->get(0), V(1, 2, 3));
    EXPECT_FALSE(A::transform(nullptr, M()));
    EXPECT_EQ(A::transform(SO<Array<V>>(new Array<V>).get(), M())->size(), 0U);
}

TEST(ComputeVertexTf, ThePointsComeToTheirImages) {
    std::mt19937 random(2);
    for (int i = 0; i < 1000; ++i) {
        const double size = std::pow(10.0, i % 13 - 6);
        const std::array<V, 3> from = {randomPoint(random, size), randomPoint(random, size),
                                       randomPoint(random, size)};
        const std::array<V, 3> to = {randomPoint(random), randomPoint(random), randomPoint(random)};
        const V normal = (from[1] - from[0]).cross(from[2] - from[0]);
        if (normal.length() < 1e-2 * size * size) continue;
        const M m = A::computeVertexTf(from, to);
        for (unsigned k = 0; k < 3; ++k) {
            EXPECT_NEAR((m * from[k] - to[k]).length(), 0.0, 1e-10);
            EXPECT_NEAR((m * (from[k] + normal.normalized() * size) - to[k]).length(), 0.0, 1e-10);
        }
        EXPECT_NEAR((m * ((from[0] + from[1]) * 0.5) - (to[0] + to[1]) * 0.5).length(), 0.0, 1e-10);
    }
}

TEST(ComputeVertexTf, PointsOnOneLineHaveNoMap) {
    const std::array<V, 3> images = {V(), V(1, 0, 0), V(0, 1, 0)};
    for (const std::array<V, 3> & points : {std::array<V, 3>{V(), V(), V()},
                                            {V(), V(1, 1, 1), V(2, 2, 2)},
                                            {V(s_nan, 0, 0), V(1, 0, 0), V(0, 1, 0)}}) {
        const M m = A::computeVertexTf(points, images);
        EXPECT_TRUE(std::all_of(m.rows().begin(), m.rows().end(), [](double e) { return std::isnan(e); }));
    }
    // Images may lie as they like.
    const M m = A::computeVertexTf(images, {V(3, 3, 3), V(3, 3, 3), V(3, 3, 3)});
    EXPECT_EQ(m * V(0.2, 0.3, 9), V(3, 3, 3));
}

TEST(SignedDistance, IsAboveZeroWhereTheNormalShows) {
    EXPECT_EQ(A::signedDistance(V(0, 5, 0), V(0, 1, 0), V(100, 8, -3)), 3.0);
    EXPECT_EQ(A::signedDistance(V(0, 5, 0), V(0, -1, 0), V(100, 8, -3)), -3.0);
    EXPECT_EQ(A::signedDistance(V(s_far, 5, s_far), V(1, 0, 0), V(s_far + 0.25, 8, -3)), 0.25);
}

struct Encased {
    const char * name;
    Loop points;
    double longer, shorter;
};

TEST(BoundingRectangle, HasTheSmallestArea) {
    const double root2 = std::sqrt(2.0);
    const Encased rows[] = {
        {"upright", {V(0, 0, 0), V(4, 0, 0), V(4, 0, 2), V(0, 0, 2)}, 4, 2},
        {"another height", {V(0, 9, 0), V(4, 1, 0), V(4, -3, 2), V(0, 0, 2)}, 4, 2},
        {"on its tip", {V(0, 0, 1), V(1, 0, 0), V(0, 0, -1), V(-1, 0, 0)}, root2, root2},
        {"points within", {V(1, 0, 1), V(0, 0, 0), V(4, 0, 0), V(2, 0, 1), V(4, 0, 2), V(0, 0, 2)}, 4, 2},
        {"points on edges", {V(0, 0, 0), V(2, 0, 0), V(4, 0, 0), V(4, 0, 1), V(4, 0, 2), V(0, 0, 2)}, 4, 2},
        {"points twice", {V(0, 0, 0), V(0, 0, 0), V(4, 0, 0), V(4, 0, 0), V(0, 0, 2)}, 4, 2},
        {"a triangle", {V(0, 0, 0), V(4, 0, 0), V(0, 0, 2)}, 4, 2},
        {"a slanted line", {V(0, 0, 0), V(3, 0, 4), V(1.5, 0, 2), V(-3, 0, -4)}, 10, 0},
        {"two points", {V(1, 0, 1), V(1, 0, 3)}, 2, 0},
        {"one point", {V(1, 2, 3)}, 0, 0},
        {"the same point", {V(1, 2, 3), V(1, 2, 3), V(1, 5, 3)}, 0, 0},
        {"far away", {V(s_far, 0, s_far), V(s_far + 0.5, 0, s_far + 1), V(s_far, 0, s_far + 2)}, 2, 0.5},
    };
    for (const Encased & row : rows) {
        const auto r = A::boundingRectangle(row.points);
        ASSERT_TRUE(r) << row.name;
        EXPECT_NEAR(std::max(edge(*r, 0, 1), edge(*r, 1, 2)), row.longer, 1e-9) << row.name;
        EXPECT_NEAR(std::min(edge(*r, 0, 1), edge(*r, 1, 2)), row.shorter, 1e-9) << row.name;
        for (const V & corner : *r)
            EXPECT_EQ(corner.y, row.points[0].y) << row.name;
    }
}

TEST(BoundingRectangle, OfEqualAreasTheLeastCircumferenceCounts) {
    // Any side of a triangle without an obtuse angle gives twice its area; along its legs this one is 4 by 2.
    for (const double turn : {0.0, 0.3, 1.0, 2.0, 4.5}) {
        const M m = M::rotation(V(0, 1, 0), turn);
        const V a = m * V(0, 0, 0), b = m * V(4, 0, 0), c = m * V(0, 0, 2);
        for (const auto & r : {A::boundingRectangle(a, b, c), A::boundingRectangle(Loop{b, c, a})}) {
            ASSERT_TRUE(r);
            EXPECT_NEAR(edge(*r, 0, 1) + edge(*r, 1, 2), 6.0, 1e-12) << turn;
        }
    }
}

TEST(ConvexHull2D, GoesAroundFromTheLeftmostPoint) {
    const Loop square = {V(0, 0, 0), V(2, 0, 0), V(2, 0, 2), V(0, 0, 2)};
    EXPECT_EQ(
        A::convexHull2D(Loop{square[2], V(1, 5, 1), square[0], V(1, 0, 0), square[3], square[1], square[0]}),
        square);
    EXPECT_EQ(A::convexHull2D(Loop{V(2, 0, 2), V(1, 0, 1), V(0, 0, 0)}), (Loop{V(0, 0, 0), V(2, 0, 2)}));
    EXPECT_EQ(A::convexHull2D(Loop{V(1, 2, 3), V(1, 7, 3)}).size(), 1U);
    EXPECT_EQ(A::convexHull2D(Loop()), Loop());
}

TEST(ConvexHull2D, IsConvexAndHoldsAllPoints) {
    std::mt19937 random(8);
    for (int i = 0; i < 500; ++i) {
        Loop points(3 + random() % 40);
        for (V & p : points) {
            p = randomPoint(random);
            if (i % 2) p = V(std::round(p.x * 3), 0, std::round(p.z * 3));
        }
        const Loop hull = A::convexHull2D(points);
        for (std::size_t k = 0; hull.size() > 2 && k < hull.size(); ++k) {
            const V & a = hull[k];
            const V & b = hull[(k + 1) % hull.size()];
            EXPECT_GT(A::signedArea(Loop{a, b, hull[(k + 2) % hull.size()]}), 0.0);
            for (const V & p : points)
                EXPECT_GE(A::signedArea(Loop{a, b, p}), -1e-15);
        }
    }
}

TEST(ConvexHull2D, OfASequenceIsThatOfItsPoints) {
    const Loop points = {V(2, 5, 2), V(0, 1, 0), V(1, 9, 1), V(2, 0, 0), V(1, 0, 0)};
    const SO<Array<V>> array(new Array<V>(points));
    const SO<Iterator<V>> hull = A::convexHull2D(array.get());
    EXPECT_EQ(Loop(hull->begin(), hull->end()), A::convexHull2D(points));
    ASSERT_EQ(hull->size(), 3U);
    EXPECT_EQ(hull->get(2), V(2, 5, 2)) << "a point keeps its height";
    EXPECT_EQ(A::convexHull2D(SO<Iterator<V>>(new ConstantIterator<V>(V(1, 2, 3), 5)).get())->size(), 1U);
    EXPECT_EQ(A::convexHull2D(SO<Array<V>>(new Array<V>).get())->size(), 0U);
    EXPECT_FALSE(A::convexHull2D(static_cast<const Iterator<V> *>(nullptr)));
}

TEST(ConvexHull2D, LeavesOutWhatIsNotFinite) {
    Loop points = {V(2, 0, 2), V(0, 0, 0), V(2, 0, 0)};
    const Loop hull = A::convexHull2D(points);
    for (int i = 0; i < 40; ++i)
        points.insert(points.begin() + i % 3, i % 2 ? V(s_nan, 0, i) : V(i, 0, -s_infinity));
    EXPECT_EQ(A::convexHull2D(points), hull);
    EXPECT_TRUE(A::convexHull2D(Loop{V(0, s_nan, 0)}).empty());
}

TEST(BoundingRectangle, NothingAroundNoPointsOrPointsThatAreNotFinite) {
    EXPECT_FALSE(A::boundingRectangle(static_cast<const Iterator<V> *>(nullptr)));
    EXPECT_FALSE(A::boundingRectangle(Loop()));
    for (const V & p : {V(s_nan, 0, 0), V(0, s_nan, 0), V(0, 0, s_infinity)}) {
        EXPECT_FALSE(A::boundingRectangle(Loop{V(), V(1, 0, 0), p}));
        EXPECT_FALSE(A::boundingRectangle(V(), V(1, 0, 0), p));
        EXPECT_FALSE(A::boundingRectangle(p, V(1, 0, 0), V()));
    }
}

TEST(BoundingRectangle, SequencesGiveTheSame) {
    const Loop points = {V(0, 3, 0), V(4, 0, 1), V(1, 0, 2), V(2, 2, 7)};
    const SO<Array<V>> array(new Array<V>(points));
    EXPECT_EQ(A::boundingRectangle(array.get()), A::boundingRectangle(points));
    const SO<ConstantIterator<V>> computed(new ConstantIterator<V>(V(1, 2, 3), 5));
    EXPECT_EQ(A::boundingRectangle(computed.get()), A::boundingRectangle(Loop{V(1, 2, 3)}));
}

TEST(BoundingRectangle, IsAsGoodAsTheBestOfAllDirectionsAndHoldsEverything) {
    std::mt19937 random(20261122);
    for (int i = 0; i < 3000; ++i) {
        const double size = std::pow(10.0, i % 9 - 4), far = i % 3 == 0 ? s_far : 0.0;
        Loop points(1 + random() % 24);
        for (V & p : points) {
            p = randomPoint(random, size);
            if (i % 4 == 1) p = V(std::round(p.x / size * 2) * size, p.y, std::round(p.z / size * 2) * size);
            if (i % 4 == 2) p.z = p.x * 1e-7 + std::round(p.z / size) * size * 1e-5;
            p += V(far, 0, far);
        }
        const auto r = A::boundingRectangle(points);
        ASSERT_TRUE(r);
        const double best = points.size() > 1 ? smallestAreaOfAllDirections(points) : 0.0;
        const double slack = 1e-9 * size * size + (far > 0 ? 1e-7 * size : 0.0);
        EXPECT_LE(area(*r), best + slack) << i;
        EXPECT_GE(A::signedArea(*r), -slack) << i;
        for (const V & p : points)
            EXPECT_LE(outside(*r, p), 1e-12 * size + far * 1e-15) << i;
        if (points.size() == 3) {
            const auto quick = A::boundingRectangle(points[0], points[1], points[2]);
            ASSERT_TRUE(quick);
            EXPECT_NEAR(area(*quick), area(*r), slack) << i;
            EXPECT_GE(A::signedArea(*quick), -slack) << i;
            for (const V & p : points)
                EXPECT_LE(outside(*quick, p), 1e-12 * size + far * 1e-15) << i;
        }
    }
}

TEST(BoundingRectangle, ManyPointsOnTheHullTakeNoTime) {
    Loop points;
    for (int i = 0; i < 200000; ++i) {
        const double angle = 2.0 * std::numbers::pi * i / 200000;
        points.emplace_back(std::cos(angle), 0, std::sin(angle));
    }
    // All of them lie on the hull: looking at each once for each edge would take minutes.
    const auto r = A::boundingRectangle(points);
    ASSERT_TRUE(r);
    EXPECT_NEAR(area(*r), 4.0, 1e-6);
}

TEST(SignedArea, IsAboveZeroFromXToZ) {
    const Loop loop = {V(0, 0, 0), V(2, 5, 0), V(2, 0, 3), V(0, 0, 3)};
    EXPECT_EQ(A::signedArea(loop), 6.0);
    EXPECT_EQ(A::signedArea(Loop(loop.rbegin(), loop.rend())), -6.0);
    EXPECT_EQ(A::signedArea(Loop()), 0.0);
    EXPECT_EQ(A::signedArea(Loop{V(1, 2, 3)}), 0.0);
    EXPECT_EQ(A::signedArea(Loop{V(1, 2, 3), V(4, 5, 6)}), 0.0);
    EXPECT_EQ(A::signedArea(Loop{V(s_far, 0, s_far), V(s_far + 0.5, 0, s_far), V(s_far, 0, s_far + 0.5)}),
              0.125);
}

TEST(OrientLoop, RunsCounterClockwiseAfterwards) {
    const Loop ccw = {V(0, 0, 0), V(2, 0, 0), V(2, 0, 3)};
    Loop loop = ccw;
    A::orientLoop(loop);
    EXPECT_EQ(loop, ccw);
    std::reverse(loop.begin(), loop.end());
    A::orientLoop(loop);
    EXPECT_EQ(loop, ccw);
    Loop line = {V(0, 0, 0), V(2, 0, 2), V(1, 0, 1)};
    const Loop before = line;
    A::orientLoop(line);
    EXPECT_EQ(line, before);
}

struct Pair {
    const char * name;
    Loop a, b;
    bool meet;
    double commonArea;
};

TEST(ClipConvexPolygons, CommonAreaOfSmallLoops) {
    const Loop square = {V(0, 0, 0), V(2, 0, 0), V(2, 0, 2), V(0, 0, 2)};
    const Pair rows[] = {
        {"itself", square, square, true, 4},
        {"a corner", square, {V(1, 0, 1), V(3, 0, 1), V(3, 0, 3), V(1, 0, 3)}, true, 1},
        {"within", square, {V(0.5, 0, 0.5), V(1.5, 0, 0.5), V(1, 0, 1.5)}, true, 0.5},
        {"around", square, {V(-9, 0, -9), V(9, 0, -9), V(0, 0, 20)}, true, 4},
        {"beside", square, {V(3, 0, 0), V(4, 0, 0), V(4, 0, 1)}, false, 0},
        {"a slanted gap", square, {V(3.1, 0, 1), V(3.1, 0, 3.1), V(1, 0, 3.1)}, false, 0},
        {"touching an edge", square, {V(2, 0, 0), V(4, 0, 0), V(4, 0, 1), V(2, 0, 1)}, true, 0},
        {"touching a corner", square, {V(2, 0, 2), V(4, 0, 2), V(4, 0, 3)}, true, 0},
        {"a line through it", square, {V(-1, 0, 1), V(3, 0, 1), V(3, 0, 1)}, true, 0},
        {"a line beside it", square, {V(3, 0, -5), V(3, 0, 5), V(3, 0, 0)}, false, 0},
        {"lines one behind the other", {V(0, 0, 0), V(1, 0, 1)}, {V(2, 0, 2), V(3, 0, 3)}, false, 0},
        {"a point in it", square, {V(1, 0, 1)}, true, 0},
        {"a point beside it", square, {V(3, 0, 1)}, false, 0},
        {"nothing", square, {}, false, 0},
        {"not a number", square, {V(0, 0, 0), V(s_nan, 0, 0), V(1, 0, 1)}, false, 0},
    };
    for (const Pair & row : rows) {
        EXPECT_EQ(A::intersectionTest(row.a, row.b), row.meet) << row.name;
        EXPECT_EQ(A::intersectionTest(row.b, row.a), row.meet) << row.name;
        EXPECT_EQ(!A::clipConvexPolygons(row.a, row.b).empty(), row.meet) << row.name;
        EXPECT_NEAR(A::signedArea(A::clipConvexPolygons(row.a, row.b)), row.commonArea, 1e-12) << row.name;
        EXPECT_NEAR(A::signedArea(A::clipConvexPolygons(row.b, row.a)), row.commonArea, 1e-12) << row.name;
    }
}

TEST(ClipConvexPolygons, ThePointsInBothAreThoseInTheResult) {
    std::mt19937 random(5);
    unsigned apart = 0;
    for (int i = 0; i < 2000; ++i) {
        const Loop a = randomConvexLoop(random, 3 + random() % 6),
                   b = randomConvexLoop(random, 3 + random() % 6);
        const Loop common = A::clipConvexPolygons(a, b);
        EXPECT_EQ(A::intersectionTest(a, b), !common.empty()) << i;
        apart += common.empty();
        EXPECT_GE(A::signedArea(common), -1e-12) << i;
        EXPECT_NEAR(A::signedArea(common), A::signedArea(A::clipConvexPolygons(b, a)), 1e-12) << i;
        for (int k = 0; k < 20; ++k) {
            const V p = randomPoint(random, 2.0);
            // Not so near to a border that rounding decides.
            bool clear = true;
            for (const V & d : {V(1e-9, 0, 0), V(-1e-9, 0, 0), V(0, 0, 1e-9), V(0, 0, -1e-9)})
                clear = clear && contains(a, p + d) == contains(a, p) && contains(b, p + d) == contains(b, p);
            if (clear) {
                EXPECT_EQ(contains(a, p) && contains(b, p), !common.empty() && contains(common, p)) << i;
            }
        }
    }
    EXPECT_GT(apart, 50U);
}

TEST(GetEdgeNormal, ShowsOutOfACounterClockwiseLoop) {
    EXPECT_EQ(A::getEdgeNormal(V(0, 0, 0), V(3, 0, 0)), V(0, 0, -1));
    EXPECT_EQ(A::getEdgeNormal(V(0, 5, 0), V(0, -2, 3)), V(1, 0, 0));
    EXPECT_NEAR((A::getEdgeNormal(V(1, 0, 1), V(2, 0, 2)) - V(std::sqrt(0.5), 0, -std::sqrt(0.5))).length(),
                0.0, 1e-15);
    EXPECT_EQ(A::getEdgeNormal(V(1, 2, 3), V(1, 2, 3)), V());
}

TEST(CalculateAngleCCW, IsTheTurnFromOneToTheOther) {
    const double pi = std::numbers::pi;
    EXPECT_NEAR(A::calculateAngleCCW(V(1, 0, 0), V(0, 0, 5)), pi / 2, 1e-15);
    EXPECT_NEAR(A::calculateAngleCCW(V(0, 9, 2), V(1, 0, 0)), pi * 1.5, 1e-15);
    EXPECT_NEAR(A::calculateAngleCCW(V(1, 0, 0), V(-1, 0, 0)), pi, 1e-15);
    EXPECT_EQ(A::calculateAngleCCW(V(1, 0, 1), V(2, 0, 2)), 0.0);
    EXPECT_EQ(A::calculateAngleCCW(V(), V(1, 0, 0)), 0.0);
    EXPECT_EQ(A::calculateAngleCCW(V(1, 0, 0), V(0, 3, 0)), 0.0);
    EXPECT_EQ(A::calculateAngleCCW(V(1, 0, 0), V(1, 0, -1e-300)), 0.0) << "no full turn";
    for (int degrees = 0; degrees < 360; ++degrees) {
        const double angle = degrees * pi / 180;
        EXPECT_NEAR(A::calculateAngleCCW(V(1, 0, 0), V(std::cos(angle), 0, std::sin(angle))), angle, 1e-14);
        // The turn that brings the second back to the first.
        const V back = M::rotation(V(0, 1, 0), angle) * V(std::cos(angle), 0, std::sin(angle));
        EXPECT_NEAR((back - V(1, 0, 0)).length(), 0.0, 1e-14);
    }
}

/// With twice the digits of a double.
__extension__ using Wide = __float128;

struct WideVector {
    Wide x, y, z;
};

WideVector wide(const V & v) {
    return {Wide(v.x), Wide(v.y), Wide(v.z)};
}

Wide wideDistance(const V & normal, const V & planePoint, const V & p) {
    const WideVector n = wide(normal), o = wide(planePoint), q = wide(p);
    return (q.x - o.x) * n.x + (q.y - o.y) * n.y + (q.z - o.z) * n.z;
}

TEST(LinePlaneIntersection, AgreesWithOneOfTwiceTheDigits) {
    std::mt19937 random(11);
    unsigned met = 0;
    for (int i = 0; i < 4000; ++i) {
        const double size = std::pow(10.0, i % 13 - 6);
        const V centre = i % 3 ? V() : V(s_far, -s_far, s_far);
        const V normal = randomPoint(random) * std::pow(10.0, i % 31 - 15);
        const V p = centre + randomPoint(random, size), a = centre + randomPoint(random, size),
                b = centre + randomPoint(random, size);
        const bool onSegment = i % 2;
        const Wide distanceA = wideDistance(normal, p, a), distanceB = wideDistance(normal, p, b);
        const bool meets = !onSegment || (distanceA > 0) != (distanceB > 0);
        V result(7, 7, 7);
        ASSERT_EQ(A::linePlaneIntersection(normal, p, a, b, result, onSegment), meets) << i;
        met += meets;
        if (!meets) {
            EXPECT_EQ(result, V(7, 7, 7));
            continue;
        }
        const Wide part = distanceA / (distanceA - distanceB);
        const V exact(double(Wide(a.x) + (Wide(b.x) - Wide(a.x)) * part),
                      double(Wide(a.y) + (Wide(b.y) - Wide(a.y)) * part),
                      double(Wide(a.z) + (Wide(b.z) - Wide(a.z)) * part));
        // How far rounding moves the point grows as the line comes to lie beside the plane.
        const double slope = std::abs(double(distanceA - distanceB)) / normal.length() / (b - a).length();
        const double digits = 1e-15 * (centre.length() + size + (exact - a).length());
        EXPECT_LE((result - exact).length(), digits * 10.0 / std::min(1.0, slope)) << i;
    }
    EXPECT_GT(met, 2500U);
}

struct Meeting {
    const char * name;
    V normal, planePoint, a, b;
    bool meets, meetsOnSegment;
    V at;
};

TEST(LinePlaneIntersection, EdgeCases) {
    const V up(0, 1, 0), o;
    const Meeting rows[] = {
        {"across", up, V(9, 5, 9), V(1, 0, 2), V(3, 10, 4), true, true, V(2, 5, 3)},
        {"downwards", up, V(9, 5, 9), V(3, 10, 4), V(1, 0, 2), true, true, V(2, 5, 3)},
        {"beyond the end", up, V(0, 20, 0), V(1, 0, 2), V(3, 10, 4), true, false, V(5, 20, 6)},
        {"before the start", up, V(0, -10, 0), V(1, 0, 2), V(3, 10, 4), true, false, V(-1, -10, 0)},
        {"at the start", up, o, V(1, 0, 2), V(3, 10, 4), true, true, V(1, 0, 2)},
        {"at the end", up, V(0, 10, 0), V(1, 0, 2), V(3, 10, 4), true, true, V(3, 10, 4)},
        {"parallel", up, o, V(1, 1, 2), V(3, 1, 4), false, false, o},
        {"within the plane", up, V(0, 1, 0), V(1, 1, 2), V(3, 1, 4), true, true, V(1, 1, 2)},
        {"a point", up, o, V(1, 1, 2), V(1, 1, 2), false, false, o},
        {"a point in the plane", up, V(0, 1, 0), V(1, 1, 2), V(1, 1, 2), true, true, V(1, 1, 2)},
        {"no normal", o, o, V(0, -1, 0), V(0, 1, 0), false, false, o},
        {"a tiny normal", V(0, 1e-310, 0), o, V(0, -1, 0), V(0, 3, 0), true, true, o},
        {"a huge normal", V(0, 1e308, 0), o, V(1e10, -1, 0), V(1e10, 1, 0), true, true, V(1e10, 0, 0)},
        {"huge heights", up, o, V(0, -1e307, 0), V(2, 1e307, 2), true, true, V(1, 0, 1)},
        {"no number", up, V(0, s_nan, 0), V(0, -1, 0), V(0, 1, 0), false, false, o},
        {"no number beside", up, o, V(s_nan, -1, 0), V(0, 1, 0), false, false, o},
        {"no end", up, o, V(0, -1, 0), V(0, s_infinity, 0), false, false, o},
        {"no end of the normal", V(0, s_infinity, 0), o, V(0, -1, 0), V(0, 1, 0), false, false, o},
        {"meets too far away", up, V(0, 1e300, 0), V(0, 0, 0), V(1e300, 1e-300, 0), false, false, o},
    };
    for (const Meeting & row : rows)
        for (const bool onSegment : {false, true}) {
            V result(7, 7, 7);
            const bool meets = onSegment ? row.meetsOnSegment : row.meets;
            EXPECT_EQ(A::linePlaneIntersection(row.normal, row.planePoint, row.a, row.b, result, onSegment),
                      meets)
                << row.name << onSegment;
            EXPECT_EQ(result, meets ? row.at : V(7, 7, 7)) << row.name << onSegment;
        }
}

/// The eight numbers of the map of four corners to others, by elimination with twice the digits; the ninth is
/// 1.
std::array<double, 9> slowProjectiveMap(const std::array<V, 4> & from, const std::array<V, 4> & to) {
    Wide rows[8][9] = {};
    for (unsigned i = 0; i < 4; ++i) {
        const Wide x = Wide(from[i].x), y = Wide(from[i].y), u = Wide(to[i].x), v = Wide(to[i].y);
        const Wide first[9] = {x, y, 1, 0, 0, 0, -u * x, -u * y, u};
        const Wide second[9] = {0, 0, 0, x, y, 1, -v * x, -v * y, v};
        std::copy(first, first + 9, rows[2 * i]);
        std::copy(second, second + 9, rows[2 * i + 1]);
    }
    const auto size = [](Wide w) { return w < 0 ? -w : w; };
    for (unsigned k = 0; k < 8; ++k) {
        unsigned pivot = k;
        for (unsigned i = k; i < 8; ++i)
            if (size(rows[i][k]) > size(rows[pivot][k])) pivot = i;
        std::swap(rows[k], rows[pivot]);
        for (unsigned i = 0; i < 8; ++i) {
            if (i == k) continue;
            const Wide factor = rows[i][k] / rows[k][k];
            for (unsigned c = k; c < 9; ++c)
                rows[i][c] -= factor * rows[k][c];
        }
    }
    std::array<double, 9> result;
    for (unsigned k = 0; k < 8; ++k)
        result[k] = double(rows[k][8] / rows[k][k]);
    result[8] = 1.0;
    return result;
}

TEST(QuadrilateralToQuadTransform, AgreesWithElimination) {
    std::mt19937 random(12);
    const V rectMin(-3, 2, 50), rectMax(5, 8, 60);
    const std::array<V, 4> corners = {V(-3, 2, 0), V(5, 2, 0), V(5, 8, 0), V(-3, 8, 0)};
    for (int i = 0; i < 2000; ++i) {
        const double size = std::pow(10.0, i % 13 - 6);
        const V centre = i % 4 ? V() : V(s_far, -s_far, 0) * (size < 1.0 ? 0.0 : 1.0);
        std::array<V, 4> q;
        for (V & p : q)
            p = centre + randomPoint(random, size);
        bool isFlat = false;
        for (unsigned k = 0; k < 4; ++k) {
            const V u = q[(k + 1) % 4] - q[k], v = q[(k + 2) % 4] - q[k];
            isFlat = isFlat || std::abs(u.x * v.y - u.y * v.x) < 0.05 * size * size;
        }
        if (isFlat) continue;
        const M m = A::quadrilateralToQuadTransform(q[0], q[1], q[2], q[3], rectMin, rectMax);
        const std::array<double, 9> exact = slowProjectiveMap(q, corners);
        for (unsigned k = 0; k < 4; ++k)
            EXPECT_NEAR((m * V(q[k].x, q[k].y, 0) - corners[k]).length(), 0.0, 1e-8 * (i % 4 ? 1e-2 : 1e2))
                << i;
        const V p = centre + randomPoint(random, size);
        const double w = exact[6] * p.x + exact[7] * p.y + exact[8];
        const double u = (exact[0] * p.x + exact[1] * p.y + exact[2]) / w,
                     v = (exact[3] * p.x + exact[4] * p.y + exact[5]) / w;
        const double off = std::hypot(u, v);
        if (i % 4 == 0 || !(off < 100.0)) continue;
        EXPECT_NEAR((m * V(p.x, p.y, 0) - V(u, v, 0)).length(), 0.0, 1e-7) << i;
    }
}

TEST(QuadrilateralToQuadTransform, AParallelogramNeedsNoProjection) {
    const M m =
        A::quadrilateralToQuadTransform(V(1, 1, 0), V(3, 1, 0), V(4, 2, 0), V(2, 2, 0), V(), V(1, 1, 0));
    EXPECT_NEAR(m(3, 0), 0.0, 1e-15);
    EXPECT_NEAR(m(3, 1), 0.0, 1e-15);
    EXPECT_NEAR(m(3, 3), 1.0, 1e-15);
    EXPECT_NEAR((m * V(2.5, 1.5, 9) - V(0.5, 0.5, 9)).length(), 0.0, 1e-14) << "z stays";
    EXPECT_NEAR((m.inverse() * V(1, 0, 0) - V(3, 1, 0)).length(), 0.0, 1e-14);
}

TEST(QuadrilateralToQuadTransform, TheFourthComponentIsAboveZeroWithin) {
    // A trapezoid, wide where it is far, either way round.
    const std::array<V, 4> way = {V(10, 1, 0), V(10, -1, 0), V(500, -70, 0), V(500, 80, 0)};
    for (const bool turned : {false, true}) {
        const M m = turned ? A::quadrilateralToQuadTransform(way[1], way[0], way[3], way[2], V(), V(1, 1, 0))
                           : A::quadrilateralToQuadTransform(way[0], way[1], way[2], way[3], V(), V(1, 1, 0));
        const V & first = turned ? way[1] : way[0];
        EXPECT_NEAR(m(3, 0) * first.x + m(3, 1) * first.y + m(3, 3), 1.0, 1e-12);
        for (int i = 0; i <= 10; ++i)
            for (int j = 0; j <= 10; ++j) {
                const V near = way[0] + (way[1] - way[0]) * (i / 10.0),
                        far = way[3] + (way[2] - way[3]) * (i / 10.0);
                const V p = near + (far - near) * (j / 10.0);
                EXPECT_GT(m(3, 0) * p.x + m(3, 1) * p.y + m(3, 3), 0.0);
                const V q = m * p;
                EXPECT_TRUE(Bounds(V(-1e-9, -1e-9, 0), V(1 + 1e-9, 1 + 1e-9, 0)).containsPoint(q));
            }
        EXPECT_LT((m * V(50, 0, 0)).y - (m * V(10, 0, 0)).y, 0.9);
        EXPECT_GT((m * V(50, 0, 0)).y, 0.1) << "dense where it is near";
    }
}

TEST(QuadrilateralToQuadTransform, ThreeCornersOnOneLineHaveNoMap) {
    const V a(0, 0, 0), b(4, 0, 0), c(4, 3, 0), d(0, 3, 0);
    const std::array<V, 4> rows[] = {
        {a, V(2, 0, 0), b, c},
        {a, b, b, d},
        {a, a, c, d},
        {a, b, c, c},
        {a, b, c, a},
        {a, a, a, a},
        {a, V(1, 1, 0), V(2, 2, 0), V(3, 3, 0)},
        {a, b, V(2, 1, 0), V(0, 2, 0)},

        {V(s_nan, 0, 0), b, c, d},
        {a, b, V(s_infinity, 0, 0), d},
        {V(-1e308, 0, 0), V(1e308, 0, 0), V(1e308, 1, 0), V(-1e308, 1, 0)},
    };
    for (const auto & q : rows) {
        const M m = A::quadrilateralToQuadTransform(q[0], q[1], q[2], q[3], V(), V(1, 1, 0));
        EXPECT_TRUE(std::all_of(m.rows().begin(), m.rows().end(), [](double e) { return std::isnan(e); }))
            << &q - rows;
    }
    // But for rounding.
    std::mt19937 random(13);
    for (int i = 0; i < 200; ++i) {
        const V from = randomPoint(random), way = randomPoint(random), beside(way.y, -way.x, 0);
        const double part = std::uniform_real_distribution<double>(0.2, 0.8)(random);
        const M m = A::quadrilateralToQuadTransform(from, from + way * part, from + way, from + beside, V(),
                                                    V(1, 1, 0));
        EXPECT_TRUE(std::isnan(m(0, 0))) << i;
    }
    // A flat rectangle is as good as any other.
    const M flat = A::quadrilateralToQuadTransform(a, b, V(1, 1, 0), d, V(3, 3, 0), V(3, 3, 0));
    EXPECT_NEAR((flat * V(1, 1, 0) - V(3, 3, 0)).length(), 0.0, 1e-14);
}

} // namespace
