#include "core/terrain/texture/dynamic/trapezoidfit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/scene/view/lookat.h>

using ZMT::CORE::TrapezoidFit;
using Matrix = TrapezoidFit::Matrix;
using Point = TrapezoidFit::Point;

namespace {

/// From the cube to the world.
Matrix fromClip(const Point & eye, const Point & target, const Point & up, const Matrix & projection) {
    const NBX::SO<NBX::LookAt> look(new NBX::LookAt(eye, target, up));
    return (projection * look->matrix()).inverse();
}

Matrix perspective(double fieldOfView, double aspect, double near, double far) {
    const double f = 1.0 / std::tan(fieldOfView * std::numbers::pi / 360.0);
    return Matrix({f / aspect, 0, 0, 0, 0, f, 0, 0, 0, 0, (far + near) / (near - far),
                   2.0 * far * near / (near - far), 0, 0, -1, 0});
}

double fourth(const Matrix & m, double x, double z) {
    return m(3, 0) * x + m(3, 1) * z + m(3, 3);
}

Point mapped(const Matrix & fit, const Point & p) {
    return fit * Point(p.x, p.z, 0.0);
}

/// What is seen between two heights, by trying: points of the view volume, many of them on its border.
std::vector<Point> seen(const Matrix & m, double low, double high, std::mt19937 & random, unsigned count) {
    std::uniform_real_distribution<double> inCube(-1.0, 1.0);
    std::uniform_int_distribution<int> side(0, 8);
    std::vector<Point> points;
    for (unsigned i = 0; i < count; ++i) {
        Point p(inCube(random), inCube(random), inCube(random));
        for (unsigned axis = 0; axis < 3; ++axis)
            if (const int s = side(random); s < 4) p[axis] = s < 2 ? -1.0 : 1.0;
        p = m * p;
        if (p.y >= low && p.y <= high) points.push_back(p);
    }
    return points;
}

struct FitView {
    const char * name;
    Point eye, target, up;
    double low, high;
};

std::ostream & operator<<(std::ostream & stream, const FitView & view) {
    return stream << view.name;
}

const FitView s_views[] = {
    {"across the ground", {0, 3000, 0}, {4000, 0, 3000}, {0, 1, 0}, 0, 800},
    {"straight down", {100, 5000, -40}, {100, 0, -40}, {0, 0, 1}, 0, 500},
    {"nearly straight down", {100, 5000, -40}, {100.01, 0, -40.02}, {0, 0, 1}, 0, 500},
    {"at the horizon", {-500, 2000, 70}, {-1500, 2000, 470}, {0, 1, 0}, -100, 900},
    {"inside the slab", {0, 500, 0}, {900, 420, -800}, {0, 1, 0}, 0, 1000},
    {"inside, upwards", {0, 500, 0}, {900, 900, -800}, {0, 1, 0}, 0, 1000},
    {"inside, straight down", {0, 500, 0}, {0, 0, 0}, {1, 0, 0}, 0, 1000},
    {"rolled", {0, 3000, 0}, {4000, 0, 3000}, {0.4, 0.7, -0.6}, 0, 800},
    {"from below", {0, -900, 0}, {400, 300, 100}, {0, 1, 0}, 0, 50},
    {"far from the origin", {400000, 6000, 5200000}, {403000, 0, 5201000}, {0, 1, 0}, 1000, 1400},
    {"a plain", {0, 300, 0}, {600, 0, 100}, {0, 1, 0}, 12, 12},
};

class TrapezoidFitTest : public ::testing::TestWithParam<FitView> {
protected:
    const FitView & view = GetParam();
    const Matrix m = fromClip(view.eye, view.target, view.up, perspective(50.0, 1.6, 2.0, 40000.0));
    const double size = std::max({std::abs(view.eye.x), std::abs(view.eye.z), 40000.0});
};

TEST_P(TrapezoidFitTest, TheFootprintHasWhatIsSeenAndNothingElse) {
    const std::vector<Point> points = TrapezoidFit::footprint(m, view.low, view.high);
    ASSERT_GE(points.size(), 3U);
    const Matrix toClip = m.inverse();
    for (const Point & p : points) {
        EXPECT_GE(p.y, view.low - 1e-6);
        EXPECT_LE(p.y, view.high + 1e-6);
        const Point c = toClip * p;
        for (unsigned axis = 0; axis < 3; ++axis)
            EXPECT_LE(std::abs(c[axis]), 1.0 + 1e-5);
    }
    // In every direction it reaches as far as what trying finds, and little farther.
    std::mt19937 random(7);
    const std::vector<Point> tried = seen(m, view.low, view.high, random, 20000);
    for (unsigned i = 0; i < 24; ++i) {
        const Point d(std::cos(i * 0.2618), 0.0, std::sin(i * 0.2618));
        double found = -1e300, reached = -1e300;
        for (const Point & p : points)
            found = std::max(found, p.dot(d));
        for (const Point & p : tried)
            reached = std::max(reached, p.dot(d));
        EXPECT_GE(found, reached - 1e-9 * size) << i;
    }
}

TEST_P(TrapezoidFitTest, WhatIsSeenIsMappedIntoTheSquare) {
    Matrix fit;
    ASSERT_TRUE(TrapezoidFit::fit(m, view.low, view.high, fit));
    std::mt19937 random(11);
    std::vector<Point> points = TrapezoidFit::footprint(m, view.low, view.high);
    const std::vector<Point> tried = seen(m, view.low, view.high, random, 20000);
    points.insert(points.end(), tried.begin(), tried.end());
    const double sign = fourth(fit, points.front().x, points.front().z);
    EXPECT_GT(sign, 0.0);
    for (const Point & p : points) {
        EXPECT_GT(fourth(fit, p.x, p.z), 0.0);
        const Point q = mapped(fit, p);
        EXPECT_GE(q.x, -1e-6);
        EXPECT_LE(q.x, 1.0 + 1e-6);
        EXPECT_GE(q.y, -1e-6);
        EXPECT_LE(q.y, 1.0 + 1e-6);
    }
}

TEST_P(TrapezoidFitTest, TheFootprintReachesAllSidesOfTheTrapezoid) {
    const auto trapezoid = TrapezoidFit::trapezoid(m, view.low, view.high);
    ASSERT_TRUE(trapezoid);
    Matrix fit;
    ASSERT_TRUE(TrapezoidFit::fit(*trapezoid, fit));
    const auto range = [&](auto coordinate) {
        double low = 1e300, high = -1e300;
        for (const Point & p : trapezoid->hull) {
            low = std::min(low, coordinate(mapped(fit, p)));
            high = std::max(high, coordinate(mapped(fit, p)));
        }
        return std::pair(low, high);
    };
    const auto [near, far] = range([](const Point & p) { return p.y; });
    EXPECT_NEAR(near, 0.0, 1e-6);
    EXPECT_NEAR(far, 1.0, 1e-6);
    // The legs are edges of the hull but where a side was widened.
    const auto [left, right] = range([](const Point & p) { return p.x; });
    EXPECT_LT(left, 0.25);
    EXPECT_GT(right, 0.75);
}

TEST_P(TrapezoidFitTest, TheCornersAreThoseOfTheSquare) {
    const auto trapezoid = TrapezoidFit::trapezoid(m, view.low, view.high);
    ASSERT_TRUE(trapezoid);
    Matrix fit;
    ASSERT_TRUE(TrapezoidFit::fit(*trapezoid, fit));
    const std::array<Point, 4> square = {Point(0, 0, 0), Point(1, 0, 0), Point(1, 1, 0), Point(0, 1, 0)};
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_LE((mapped(fit, trapezoid->corners[i]) - square[i]).length(), 1e-6) << i;
}

TEST_P(TrapezoidFitTest, TheSecondCoordinateGrowsAlongTheViewAlone) {
    Matrix fit;
    ASSERT_TRUE(TrapezoidFit::fit(m, view.low, view.high, fit));
    const auto trapezoid = *TrapezoidFit::trapezoid(m, view.low, view.high);
    Point along = view.target - view.eye;
    if (std::hypot(along.x, along.z) < 1e-9) along = view.up;
    along = Point(along.x, 0.0, along.z).normalized();
    const Point across(-along.z, 0.0, along.x);
    const Point middle = (trapezoid.corners[0] + trapezoid.corners[2]) * 0.5;
    const double step = (trapezoid.corners[0] - trapezoid.corners[1]).length() * 0.1;
    EXPECT_GT(mapped(fit, middle + along * step).y, mapped(fit, middle).y);
    EXPECT_NEAR(mapped(fit, middle + across * step).y, mapped(fit, middle).y, 1e-5);
    // A viewer who looks to the north, z, has the east, x, at the right.
    EXPECT_LT(mapped(fit, middle + across * step).x, mapped(fit, middle).x) << "across points to the left";
}

INSTANTIATE_TEST_SUITE_P(Views, TrapezoidFitTest, ::testing::ValuesIn(s_views));

// ---------------------------------------------------------------------------------------------------------

/// A view volume that is a box turned about the height axis, above a slab that it crosses.
Matrix box(const Point & centre, double halfX, double halfY, double halfZ) {
    return Matrix::translation(centre) * Matrix::scaling({halfX, halfY, halfZ});
}

TEST(TrapezoidFit, TheFootprintOfABoxHasItsCorners) {
    // All 12 edges are within: each adds both of its ends.
    const auto whole = TrapezoidFit::footprint(box({5, 1, 7}, 2, 3, 4), -10.0, 10.0);
    EXPECT_EQ(whole.size(), 24U);
    for (const Point & p : whole) {
        EXPECT_EQ(std::abs(p.x - 5.0), 2.0);
        EXPECT_EQ(std::abs(p.y - 1.0), 3.0);
        EXPECT_EQ(std::abs(p.z - 7.0), 4.0);
    }
    // The four upright edges are cut at both ends, the others lie beyond.
    const auto cut = TrapezoidFit::footprint(box({5, 1, 7}, 2, 3, 4), 0.0, 2.0);
    ASSERT_EQ(cut.size(), 8U);
    EXPECT_EQ(std::count_if(cut.begin(), cut.end(), [](const Point & p) { return p.y == 0.0; }), 4);
    EXPECT_EQ(std::count_if(cut.begin(), cut.end(), [](const Point & p) { return p.y == 2.0; }), 4);
}

TEST(TrapezoidFit, WhatMissesTheSlabHasNoFootprintAndNoFit) {
    const Matrix above = fromClip({0, 5000, 0}, {1000, 6000, 0}, {0, 1, 0}, perspective(40, 1, 1, 9000));
    EXPECT_LT(TrapezoidFit::footprint(above, 0.0, 1000.0).size(), 3U);
    Matrix result = Matrix::scaling({7, 7, 7});
    EXPECT_FALSE(TrapezoidFit::fit(above, 0.0, 1000.0, result));
    EXPECT_EQ(result, Matrix::scaling({7, 7, 7}));
    EXPECT_FALSE(TrapezoidFit::trapezoid(above, 0.0, 1000.0));
    // Heights the wrong way round are nothing.
    EXPECT_FALSE(TrapezoidFit::trapezoid(box({0, 0, 0}, 1, 1, 1), 3.0, 2.0));
}

TEST(TrapezoidFit, ASlabThatIsOnlyTouchedCounts) {
    EXPECT_TRUE(TrapezoidFit::trapezoid(box({0, 2, 0}, 1, 1, 1), 0.0, 1.0));
    EXPECT_TRUE(TrapezoidFit::trapezoid(box({0, 2, 0}, 1, 1, 1), 3.0, 4.0));
    EXPECT_FALSE(TrapezoidFit::trapezoid(box({0, 2, 0}, 1, 1, 1), 0.0, 0.999));
}

TEST(TrapezoidFit, AViewWithoutAreaInPlanHasNoFit) {
    EXPECT_FALSE(TrapezoidFit::trapezoid(box({0, 0, 0}, 0, 1, 1), -1.0, 1.0));
    EXPECT_FALSE(TrapezoidFit::trapezoid(box({0, 0, 0}, 1, 1, 0), -1.0, 1.0));
    Matrix nan = box({0, 0, 0}, 1, 1, 1);
    nan(0, 0) = std::nan("");
    EXPECT_FALSE(TrapezoidFit::trapezoid(nan, -1.0, 1.0));
    Matrix result;
    EXPECT_FALSE(TrapezoidFit::fit(nan, -1.0, 1.0, result));
    EXPECT_EQ(result, Matrix());
}

TEST(TrapezoidFit, AHullOfThreePointsHasAQuadrilateral) {
    // The eye on the ground, looking level, cut by a plain.
    const Matrix level = fromClip({0, 0, 0}, {100, 0, 0}, {0, 1, 0}, perspective(90, 1, 1e-9, 1000));
    const auto trapezoid = TrapezoidFit::trapezoid(level, -0.0, 0.0);
    ASSERT_TRUE(trapezoid);
    Matrix fit;
    ASSERT_TRUE(TrapezoidFit::fit(*trapezoid, fit));
    for (const Point & p : trapezoid->hull) {
        const Point q = mapped(fit, p);
        EXPECT_GE(std::min(q.x, q.y), -1e-6);
        EXPECT_LE(std::max(q.x, q.y), 1.0 + 1e-6);
    }
    EXPECT_NEAR(TrapezoidFit::leastRatio,
                (trapezoid->corners[1] - trapezoid->corners[0]).length() /
                    (trapezoid->corners[2] - trapezoid->corners[3]).length(),
                1e-6);
}

TEST(TrapezoidFit, EveryTriangleHasOneWhicheverWayItStands) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> any(-100.0, 100.0);
    for (unsigned i = 0; i < 2000; ++i) {
        // An upright prism, one side of which nearly is an edge.
        const Matrix narrow(
            {1, 0, 0, any(random), 0, 1, 0, 0, any(random) / 50.0, 0, 1, any(random), 0, 0, -0.9999999, 1});
        const Matrix turn = Matrix::rotation({0, 1, 0}, any(random));
        const Matrix m = turn * narrow;
        const auto trapezoid = TrapezoidFit::trapezoid(m, -0.25, 0.25);
        ASSERT_TRUE(trapezoid) << i;
        Matrix fit;
        ASSERT_TRUE(TrapezoidFit::fit(*trapezoid, fit)) << i;
        for (const Point & p : trapezoid->hull) {
            const Point q = mapped(fit, p);
            EXPECT_GE(std::min(q.x, q.y), -1e-4) << i;
            EXPECT_LE(std::max(q.x, q.y), 1.0 + 1e-4) << i;
        }
    }
}

/// A leaning parallelogram, whose four edges lead as far along the view: the first two that are met, from the
/// corner with the least x on, lie opposite to each other.
TEST(TrapezoidFit, OfEdgesThatLeadAsFarTheEarlierOneIsTheLeg) {
    const Matrix leaning({2, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1, 0, 0, 0, 0, 1});
    const auto trapezoid = TrapezoidFit::trapezoid(leaning, -0.5, 0.5);
    ASSERT_TRUE(trapezoid);
    const std::array<Point, 4> expected = {Point(-2, 0, -2), Point(2, 0, -2), Point(2, 0, 2),
                                           Point(-2, 0, 2)};
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_LE((trapezoid->corners[i] - expected[i]).length(), 1e-9) << i;
}

TEST(TrapezoidFit, StraightDownTheUpperBorderOfThePictureIsFar) {
    const Matrix m = fromClip({10, 1000, 20}, {10, 0, 20}, {1, 0, 0}, perspective(60, 1.5, 1, 2000));
    const auto trapezoid = TrapezoidFit::trapezoid(m, 0.0, 0.0);
    ASSERT_TRUE(trapezoid);
    const double half = 1000.0 * std::tan(std::numbers::pi / 6.0);
    EXPECT_NEAR(trapezoid->corners[0].x, 10.0 - half, 1e-6);
    EXPECT_NEAR(trapezoid->corners[1].x, 10.0 - half, 1e-6);
    EXPECT_NEAR(trapezoid->corners[2].x, 10.0 + half, 1e-6);
    EXPECT_NEAR(trapezoid->corners[3].x, 10.0 + half, 1e-6);
    EXPECT_NEAR(trapezoid->corners[0].z, 20.0 + 1.5 * half, 1e-6) << "at the left of the east is the north";
    EXPECT_NEAR(trapezoid->corners[2].z, 20.0 - 1.5 * half, 1e-6);
}

TEST(TrapezoidFit, AParallelViewKeepsItsProportions) {
    const Matrix projection({0.002, 0, 0, 0, 0, 0.004, 0, 0, 0, 0, -0.0001, -1, 0, 0, 0, 1});
    const Matrix m = fromClip({0, 1000, 0}, {0, 0, 0}, {0, 0, 1}, projection);
    Matrix fit;
    ASSERT_TRUE(TrapezoidFit::fit(*TrapezoidFit::trapezoid(m, -50.0, 50.0, 1000.0), fit));
    EXPECT_NEAR(mapped(fit, {0, 0, 0}).x, 0.5, 1e-9);
    EXPECT_NEAR(mapped(fit, {0, 0, 0}).y, 0.5, 1e-9);
    EXPECT_NEAR(mapped(fit, {0, 0, 125}).y, 0.75, 1e-9) << "half way to the border, evenly";
    EXPECT_NEAR(std::abs(mapped(fit, {250, 0, 0}).x - 0.5), 0.25, 1e-9);
}

/// Ground that is seen from 300 units on.
TEST(TrapezoidFit, WhereNothingIsNearTheLegsMeetFarther) {
    const Matrix m = fromClip({0, 500, 0}, {1000, 500, 0}, {0, 1, 0}, perspective(50, 1.6, 2, 40000));
    Matrix close, wide;
    ASSERT_TRUE(TrapezoidFit::fit(m, 0.0, 1000.0, close));
    const auto trapezoid = *TrapezoidFit::trapezoid(m, 0.0, 1000.0, 300.0);
    ASSERT_TRUE(TrapezoidFit::fit(trapezoid, wide));
    const double near = (trapezoid.corners[1] - trapezoid.corners[0]).length();
    const double far = (trapezoid.corners[2] - trapezoid.corners[3]).length();
    EXPECT_NEAR(near / (far - near) * 40000.0, 300.0, 1.0) << "the meeting point before the near side";
    const Point at300(300, 0, 0);
    EXPECT_GT(mapped(close, at300).y, mapped(wide, at300).y);
    EXPECT_NEAR(mapped(wide, at300).y, 0.5, 0.01) << "half of the rows lie beyond";
    const auto tooClose = *TrapezoidFit::trapezoid(m, 0.0, 1000.0, 1e-3);
    EXPECT_NEAR((tooClose.corners[1] - tooClose.corners[0]).length() /
                    (tooClose.corners[2] - tooClose.corners[3]).length(),
                TrapezoidFit::leastRatio, 1e-9);
}

TEST(TrapezoidFit, GroundThatEndsIsAllThatCounts) {
    const Matrix m = fromClip({0, 500, 0}, {1000, 0, 0}, {0, 1, 0}, perspective(50, 1.6, 2, 40000));
    const NBX::Bounds ground({-5000, 0, -3000}, {2500, 100, 3000});
    const auto all = *TrapezoidFit::trapezoid(m, 0.0, 100.0);
    const auto cut = *TrapezoidFit::trapezoid(m, 0.0, 100.0, 0.0, ground);
    EXPECT_GT(all.corners[2].x, 10000.0);
    EXPECT_NEAR(cut.corners[2].x, 2500.0, 1e-6);
    EXPECT_NEAR(cut.corners[3].x, 2500.0, 1e-6);
    EXPECT_NEAR(cut.corners[0].x, all.corners[0].x, 1e-6) << "the near side stays";
    Matrix fit;
    ASSERT_TRUE(TrapezoidFit::fit(cut, fit));
    const Matrix toClip = m.inverse();
    unsigned onGround = 0;
    for (unsigned i = 0; i < 10000; ++i) {
        const Point p = ground.point((i % 100) / 99.0, (i % 3) / 2.0, (i / 100) / 99.0);
        const Point c = toClip * p;
        if (std::max({std::abs(c.x), std::abs(c.y), std::abs(c.z)}) > 1.0) continue;
        ++onGround;
        const Point q = mapped(fit, p);
        EXPECT_GE(std::min(q.x, q.y), -1e-6);
        EXPECT_LE(std::max(q.x, q.y), 1.0 + 1e-6);
    }
    EXPECT_GT(onGround, 1000U);
    EXPECT_FALSE(TrapezoidFit::trapezoid(m, 0.0, 100.0, 0.0, {{-5000, 0, 0}, {-4000, 1, 1}})) << "behind";
    EXPECT_FALSE(TrapezoidFit::trapezoid(m, 0.0, 100.0, 0.0, {{500, 0, 0}, {4000, 1, 0}})) << "no area";
}

/// A square that shows a corner to the viewer: the longest edges of what is seen lead anywhere.
TEST(TrapezoidFit, AnEndOfTheGroundDoesNotTurnTheLegs) {
    for (const double turn : {0.0, 0.3, 0.785398163, 1.2}) {
        const Point eye(500.0 - 900.0 * std::cos(turn), 120.0, 500.0 - 900.0 * std::sin(turn));
        const Matrix m = fromClip(eye, {500, 100, 500}, {0, 1, 0}, perspective(50, 1.0, 1, 5000));
        const auto cut = *TrapezoidFit::trapezoid(m, 0.0, 0.0, 0.0, {{0, 0, 0}, {1000, 0, 1000}});
        const double near = (cut.corners[1] - cut.corners[0]).length();
        const double far = (cut.corners[2] - cut.corners[3]).length();
        const double depth = (cut.corners[0] + cut.corners[1] - cut.corners[2] - cut.corners[3]).length() / 2;
        EXPECT_NEAR((far - near) / depth, 2.0 * std::tan(25.0 * std::numbers::pi / 180.0), 0.05) << turn;
    }
}

TEST(TrapezoidFit, AViewWithoutAFarPlaneHasTheGroundItSees) {
    const double f = 1.0 / std::tan(25.0 * std::numbers::pi / 180.0);
    const Matrix endless({f, 0, 0, 0, 0, f, 0, 0, 0, 0, -1, -4, 0, 0, -1, 0});
    const NBX::Bounds ground({-5000, 0, -3000}, {25000, 100, 3000});
    for (const Point & target : {Point(1000, 0, 0), Point(1000, 500, 300), Point(0.0, 0.0, 0.0)}) {
        const Matrix m = fromClip({0, 500, 0}, target, {0, 1, 0.1}, endless);
        const Matrix bounded = fromClip({0, 500, 0}, target, {0, 1, 0.1}, perspective(50, 1.0, 2.0, 1e6));
        const auto found = TrapezoidFit::trapezoid(m, 0.0, 100.0, 0.0, ground);
        const auto expected = TrapezoidFit::trapezoid(bounded, 0.0, 100.0, 0.0, ground);
        ASSERT_TRUE(found && expected) << target.x;
        for (unsigned i = 0; i < 4; ++i)
            EXPECT_LE((found->corners[i] - expected->corners[i]).length(), 5.0) << i;
    }
}

TEST(TrapezoidFit, RandomViewsAreCovered) {
    std::mt19937 random(20);
    std::uniform_real_distribution<double> any(-1.0, 1.0);
    for (unsigned i = 0; i < 2000; ++i) {
        const Point eye(any(random) * 1e4, any(random) * 3000.0, any(random) * 1e4);
        const Point target(any(random) * 1e4, any(random) * 1000.0, any(random) * 1e4);
        const double near = std::pow(10.0, any(random) * 2.0), far = near * std::pow(10.0, 2.5 + any(random));
        const Matrix m = fromClip(eye, target, {0, 1, 0}, perspective(50 + 30 * any(random), 1.3, near, far));
        const double low = any(random) * 500.0, high = low + std::abs(any(random)) * 1000.0;
        Matrix fit;
        const std::vector<Point> points = TrapezoidFit::footprint(m, low, high);
        if (!TrapezoidFit::fit(m, low, high, fit)) {
            EXPECT_LT(points.size(), 3U) << i;
            continue;
        }
        for (const Point & p : points) {
            const Point q = mapped(fit, p);
            ASSERT_GT(fourth(fit, p.x, p.z), 0.0) << i;
            ASSERT_GE(std::min(q.x, q.y), -1e-5) << i;
            ASSERT_LE(std::max(q.x, q.y), 1.0 + 1e-5) << i;
        }
    }
}

TEST(TrapezoidFit, TheSquareComesToTheCube) {
    const Matrix m = TrapezoidFit::squareToClip();
    EXPECT_EQ(m * Point(0, 0, 0), Point(-1, -1, 0));
    EXPECT_EQ(m * Point(1, 1, 0.5), Point(1, 1, 0.5));
    EXPECT_EQ(m * Point(0.5, 0.25, 0), Point(0, -0.5, 0));
}

} // namespace
