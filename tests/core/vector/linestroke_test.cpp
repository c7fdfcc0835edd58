#include "core/vector/linestroke.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

using ZMT::CORE::LineStroke;
using ZMT::CORE::PlanPoint;
using ZMT::CORE::PlanWindow;

namespace {

const PlanWindow s_window(100.0, 100.0);

std::vector<PlanPoint> drawn(const LineStroke::Pen & pen, const std::vector<PlanPoint> & line,
                             bool isClosed = false) {
    std::vector<float> vertices;
    LineStroke(s_window, pen, vertices).draw(line, isClosed);
    std::vector<PlanPoint> points;
    for (std::size_t i = 0; i + 2 < vertices.size(); i += 3) {
        EXPECT_EQ(vertices[i + 1], 0.0F);
        points.push_back({vertices[i], vertices[i + 2]});
    }
    return points;
}

double areaOf(const PlanPoint & a, const PlanPoint & b, const PlanPoint & c) {
    return std::abs((b.x - a.x) * (c.z - a.z) - (b.z - a.z) * (c.x - a.x)) / 2.0;
}

bool isInside(const std::vector<PlanPoint> & triangles, const PlanPoint & p) {
    for (std::size_t i = 0; i + 2 < triangles.size(); i += 3) {
        const PlanPoint &a = triangles[i], &b = triangles[i + 1], &c = triangles[i + 2];
        const double parts = areaOf(a, b, p) + areaOf(b, c, p) + areaOf(c, a, p);
        if (parts <= areaOf(a, b, c) * (1.0 + 1e-9)) return true;
    }
    return false;
}

TEST(LineStroke, SegmentsAreThoseOfTheLine) {
    const std::vector<PlanPoint> line = {{0.0, 0.0}, {10.0, 0.0}, {10.0, 0.0}, {10.0, 5.0}};
    EXPECT_EQ(drawn({}, line), (std::vector<PlanPoint>{{0.0, 0.0}, {10.0, 0.0}, {10.0, 0.0}, {10.0, 5.0}}));
    EXPECT_EQ(drawn({}, line, true).size(), 6U);
    EXPECT_TRUE(drawn({}, {}).empty());
    EXPECT_TRUE(drawn({}, {{1.0, 1.0}}, true).empty());
    EXPECT_TRUE(drawn({}, {{1.0, 1.0}, {1.0, 1.0}}).empty());
}

TEST(LineStroke, SegmentsEndAtTheWindow) {
    EXPECT_EQ(drawn({}, {{-300.0, 0.0}, {300.0, 0.0}}),
              (std::vector<PlanPoint>{{-100.0, 0.0}, {100.0, 0.0}}));
    EXPECT_TRUE(drawn({}, {{-300.0, 101.0}, {300.0, 101.0}}).empty());
}

TEST(LineStroke, RibbonsHaveRoundJointsAndEnds) {
    for (const bool turnsLeft : {true, false}) {
        const double sign = turnsLeft ? 1.0 : -1.0;
        const auto ribbon = drawn({10.0, 0.05, {}}, {{-40.0, 0.0}, {0.0, 0.0}, {0.0, 40.0 * sign}});
        const auto at = [&](double x, double z) { return isInside(ribbon, {x, z * sign}); };
        EXPECT_TRUE(at(-20.0, 9.9) && at(-20.0, -9.9) && at(9.9, 20.0) && at(-9.9, 20.0));
        EXPECT_FALSE(at(-20.0, 10.1) || at(-20.0, -10.1) || at(10.1, 20.0) || at(-10.1, 20.0));
        EXPECT_TRUE(at(6.9, -6.9)) << "joint";
        EXPECT_FALSE(at(7.3, -7.3)) << "joint";
        EXPECT_TRUE(at(-49.8, 0.0) && at(0.0, 49.8)) << "ends";
        EXPECT_FALSE(at(-50.2, 0.0) || at(0.0, 50.2) || at(-49.0, 5.0)) << "ends";
    }
}

TEST(LineStroke, LinesThatTurnBackAreRoundThere) {
    const auto ribbon = drawn({10.0, 0.05, {}}, {{-40.0, 0.0}, {0.0, 0.0}, {-40.0, 0.0}});
    EXPECT_TRUE(isInside(ribbon, {9.8, 0.0}));
    EXPECT_FALSE(isInside(ribbon, {10.2, 0.0}));
    EXPECT_FALSE(isInside(ribbon, {9.0, 9.0}));
}

TEST(LineStroke, ClosedRibbonsHaveAJointWhereTheyBegin) {
    const std::vector<PlanPoint> ring = {{0.0, 0.0}, {40.0, 0.0}, {40.0, 40.0}, {0.0, 40.0}};
    const auto ribbon = drawn({10.0, 0.05, {}}, ring, true);
    for (const double x : {-6.9, 46.9})
        for (const double z : {-6.9, 46.9})
            EXPECT_TRUE(isInside(ribbon, {x, z})) << x << ", " << z;
    EXPECT_TRUE(isInside(ribbon, {0.0, 20.0}));
    EXPECT_FALSE(isInside(ribbon, {20.0, 20.0}));
    std::vector<PlanPoint> repeated = ring;
    repeated.push_back(ring.front());
    EXPECT_EQ(drawn({10.0, 0.05, {}}, repeated, true), ribbon);
}

TEST(LineStroke, RibbonsBesideTheWindowReachIntoIt) {
    EXPECT_FALSE(drawn({10.0, 0.05, {}}, {{-50.0, 105.0}, {50.0, 105.0}}).empty());
    EXPECT_TRUE(drawn({10.0, 0.05, {}}, {{-50.0, 115.0}, {50.0, 115.0}}).empty());
}

TEST(LineStroke, DashesGoOnBehindABend) {
    const auto dashes = drawn({0.0, 0.0, {6.0, 4.0}}, {{0.0, 0.0}, {5.0, 0.0}, {5.0, 20.0}});
    EXPECT_EQ(dashes, (std::vector<PlanPoint>{{0.0, 0.0},
                                              {5.0, 0.0},
                                              {5.0, 0.0},
                                              {5.0, 1.0},
                                              {5.0, 5.0},
                                              {5.0, 11.0},
                                              {5.0, 15.0},
                                              {5.0, 20.0}}));
}

TEST(LineStroke, DashesAreWhereTheyWouldBeWithoutAWindow) {
    // 1000 metres lie before it: 100 rounds of the pattern.
    const auto dashes = drawn({0.0, 0.0, {6.0, 1.0, 2.0, 1.0}}, {{-1100.0, 0.0}, {-70.0, 0.0}});
    ASSERT_EQ(dashes.size(), 12U);
    const double expected[] = {-100.0, -94.0, -93.0, -91.0, -90.0, -84.0,
                               -83.0,  -81.0, -80.0, -74.0, -73.0, -71.0};
    for (std::size_t i = 0; i < 12; ++i)
        EXPECT_NEAR(dashes[i].x, expected[i], 1e-4);
}

TEST(LineStroke, RibbonsOfDashesAreBluntAndBendWithTheLine) {
    const auto ribbon = drawn({3.0, 0.01, {10.0, 10.0}}, {{0.0, 0.0}, {25.0, 0.0}, {25.0, 50.0}});
    EXPECT_TRUE(isInside(ribbon, {9.9, 2.9}));
    EXPECT_FALSE(isInside(ribbon, {10.1, 0.0}) || isInside(ribbon, {-0.1, 0.0}));
    EXPECT_TRUE(isInside(ribbon, {27.0, -2.0})) << "a bend within a dash";
    EXPECT_FALSE(isInside(ribbon, {25.0, 6.0}));
    const auto gap = drawn({3.0, 0.01, {10.0, 10.0}}, {{0.0, 0.0}, {15.0, 0.0}, {15.0, 50.0}});
    EXPECT_FALSE(isInside(gap, {17.0, -2.0})) << "a bend within a gap";
    EXPECT_FALSE(isInside(gap, {15.0, 0.0}));
}

TEST(LineStroke, DashesBeyondAllMeasureBecomeWholeLines) {
    std::vector<PlanPoint> line;
    for (int i = 0; i < 300; ++i)
        line.push_back({i % 2 == 0 ? -99.0 : 99.0, 0.0});
    const auto dashes = drawn({0.0, 0.0, {0.01, 0.01}}, line);
    EXPECT_GT(dashes.size(), 2 * LineStroke::mostDashes);
    EXPECT_LT(dashes.size(), 2 * LineStroke::mostDashes + 1000);
}

TEST(LineStroke, SegmentsBeyondAllMeasureAreLeftOut) {
    for (const double far : {1e15, 1e200, 1e308})
        EXPECT_TRUE(drawn({1.0, 0.1, {2.0, 2.0}}, {{-far, 0.0}, {far, 0.0}}).empty()) << far;
    EXPECT_FALSE(drawn({1.0, 0.1, {2.0, 2.0}}, {{-1e9, 0.0}, {1e9, 0.0}}).empty());
}

} // namespace
