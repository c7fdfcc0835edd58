#include "util/mapping/trianglelayout.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace {

using ZMT::UTIL::TriangleLayout;
using V = TriangleLayout::Vector;

void expectNear(const V & expected, const V & actual) {
    EXPECT_LT((expected - actual).length(), 1e-12) << actual.x << " " << actual.y << " " << actual.z;
}

TEST(TriangleLayout, TheLongestEdgeIsTheBase) {
    // The longest edge leads from corner 2 to corner 0: 30 units, with corner 1 above a third of it, 20 high.
    const TriangleLayout layout({V(0, 7, 0), V(20, 7, 20), V(30, 7, 0)}, 2.0, 1024);
    EXPECT_EQ(64, layout.width);
    EXPECT_EQ(44, layout.height);
    const double left = 2.0 / 64.0, right = 62.0 / 64.0, low = 2.0 / 44.0, high = 42.0 / 44.0;
    expectNear({left, low, 0}, layout.coordinates[2]);
    expectNear({right, low, 0}, layout.coordinates[0]);
    expectNear({left + (right - left) / 3.0, high, 0}, layout.coordinates[1]);
}

TEST(TriangleLayout, AnEquilateralTriangleStandsOnEdgeTwo) {
    const TriangleLayout layout({V(1, 0, 0), V(0, 1, 0), V(0, 0, 1)}, 100.0, 1024);
    EXPECT_LT(layout.coordinates[2].x, layout.coordinates[0].x);
    EXPECT_EQ(layout.coordinates[2].y, layout.coordinates[0].y);
    EXPECT_LT(layout.coordinates[0].y, layout.coordinates[1].y);
}

TEST(TriangleLayout, ATieFallsToTheLaterEdge) {
    // Edges 0 and 1 are the longest.
    const TriangleLayout first({V(-1, 0, 0), V(0, 9, 0), V(1, 0, 0)}, 1.0, 1024);
    EXPECT_EQ(first.coordinates[1].y, first.coordinates[2].y);
    EXPECT_LT(first.coordinates[1].x, first.coordinates[2].x);
    // Edges 0 and 2 are.
    const TriangleLayout second({V(0, 9, 0), V(1, 0, 0), V(-1, 0, 0)}, 1.0, 1024);
    EXPECT_EQ(second.coordinates[2].y, second.coordinates[0].y);
    EXPECT_LT(second.coordinates[2].x, second.coordinates[0].x);
}

TEST(TriangleLayout, SizesAreCutToWholeTexelsAndNeverBelowSixteen) {
    EXPECT_EQ(20, TriangleLayout({V(0, 0, 0), V(1e-9, 0, 0), V(0, 1e-9, 0)}, 1.0, 1024).width);
    EXPECT_EQ(20, TriangleLayout({V(0, 0, 0), V(16.9, 0, 0), V(5, 16.9, 0)}, 1.0, 1024).height);
    EXPECT_EQ(21, TriangleLayout({V(0, 0, 0), V(17.9, 0, 0), V(5, 2, 0)}, 1.0, 1024).width);
}

TEST(TriangleLayout, ATriangleThatIsTooLargeGetsFewerTexels) {
    const TriangleLayout layout({V(0, 0, 0), V(1e12, 0, 0), V(0, 900, 0)}, 1.0, 256);
    EXPECT_EQ(256, layout.width);
    EXPECT_EQ(256, layout.height);
    EXPECT_DOUBLE_EQ(2.0 / 256.0, std::min(layout.coordinates[0].x, layout.coordinates[1].x));
}

TEST(TriangleLayout, WithoutAreaOrNotFinite) {
    const double nan = std::numeric_limits<double>::quiet_NaN(),
                 inf = std::numeric_limits<double>::infinity();
    for (const V & odd : {V(0, 0, 0), V(nan, 0, 0), V(inf, 0, 0), V(1, 0, 0)})
        for (const double texels : {0.0, -1.0, 1.0, nan, inf}) {
            const TriangleLayout layout({V(0, 0, 0), V(0, 0, 0), odd}, texels, 64);
            EXPECT_GE(layout.width, 20);
            EXPECT_LE(layout.width, 64);
            for (const V & c : layout.coordinates) {
                EXPECT_TRUE(c.x >= 2.0 / layout.width - 1e-12 && c.x <= 1.0 - 2.0 / layout.width + 1e-12);
                EXPECT_TRUE(c.y >= 2.0 / layout.height - 1e-12 && c.y <= 1.0 - 2.0 / layout.height + 1e-12);
            }
        }
}

/// Where its place is computed a rounding beyond the base, too.
TEST(TriangleLayout, AThirdCornerBesideAnEndStaysThere) {
    std::mt19937 random(6);
    std::uniform_real_distribution<double> place(-100.0, 100.0), little(-3e-14, 3e-14);
    const auto vector = [&random](auto & range) { return V(range(random), range(random), range(random)); };
    for (int i = 0; i < 20000; ++i) {
        const V end = vector(place);
        const TriangleLayout layout({vector(place), end, end + vector(little)}, 1.0, 1024);
        ASSERT_NEAR(layout.coordinates[1].x, layout.coordinates[2].x, 1e-9) << i;
    }
}

TEST(TriangleLayout, TheThirdCornerLiesAboveTheBase) {
    std::mt19937 random(5);
    std::uniform_real_distribution<double> place(-100.0, 100.0);
    for (int i = 0; i < 2000; ++i) {
        std::array<V, 3> p;
        for (V & corner : p)
            corner = {place(random), place(random), i % 5 == 0 ? 0.0 : place(random)};
        const TriangleLayout layout(p, 3.0, 4096);
        for (const V & c : layout.coordinates) {
            EXPECT_GE(c.x, 2.0 / layout.width - 1e-12);
            EXPECT_LE(c.x, 1.0 - 2.0 / layout.width + 1e-12);
        }
        // The plane is kept: lengths along the base and heights in texels are those of the triangle.
        const double base =
            std::max({(p[1] - p[0]).length(), (p[2] - p[1]).length(), (p[0] - p[2]).length()});
        EXPECT_NEAR(layout.width, std::max(base * 3.0, 16.0) + 4.0, 1.0);
        const double area = (p[1] - p[0]).cross(p[2] - p[0]).length();
        EXPECT_NEAR(layout.height, std::max(area / base * 3.0, 16.0) + 4.0, 1.0);
    }
}

} // namespace
