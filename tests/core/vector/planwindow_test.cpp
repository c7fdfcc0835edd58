#include "core/vector/planwindow.h"

#include <gtest/gtest.h>

using ZMT::CORE::PlanPoint;
using ZMT::CORE::PlanWindow;

namespace {

TEST(PlanWindow, PartsOfSegmentsWithinAreShares) {
    const PlanWindow window(10.0, 5.0);
    const struct {
        PlanPoint a, b;
        bool isWithin;
        double from, to;
    } cases[] = {
        {{-1.0, -1.0}, {1.0, 1.0}, true, 0.0, 1.0},       {{-10.0, -5.0}, {10.0, 5.0}, true, 0.0, 1.0},
        {{-20.0, 0.0}, {20.0, 0.0}, true, 0.25, 0.75},    {{20.0, 0.0}, {-20.0, 0.0}, true, 0.25, 0.75},
        {{0.0, 0.0}, {0.0, 20.0}, true, 0.0, 0.25},       {{0.0, -20.0}, {0.0, 0.0}, true, 0.75, 1.0},
        {{0.0, 20.0}, {0.0, -20.0}, true, 0.375, 0.625},  {{-20.0, 6.0}, {20.0, 6.0}, false, 0.0, 0.0},
        {{-20.0, -6.0}, {20.0, -6.0}, false, 0.0, 0.0},   {{11.0, -20.0}, {11.0, 20.0}, false, 0.0, 0.0},
        {{-11.0, -20.0}, {-11.0, 20.0}, false, 0.0, 0.0}, {{9.0, 10.0}, {15.0, 4.0}, false, 0.0, 0.0},
        {{11.0, 0.0}, {11.0, 0.0}, false, 0.0, 0.0},      {{10.0, 5.0}, {10.0, 5.0}, true, 0.0, 1.0},
    };
    for (const auto & [a, b, isWithin, expectedFrom, expectedTo] : cases) {
        double from = -1.0, to = -1.0;
        EXPECT_EQ(window.clip(a, b, from, to), isWithin) << a.x << ", " << a.z;
        if (!isWithin) continue;
        EXPECT_DOUBLE_EQ(from, expectedFrom) << a.x << ", " << a.z;
        EXPECT_DOUBLE_EQ(to, expectedTo) << a.x << ", " << a.z;
    }
}

TEST(PlanWindow, GrowsOnEachSide) {
    const PlanWindow window = PlanWindow(10.0, 5.0).grownBy(2.0);
    EXPECT_TRUE(window.contains({12.0, -7.0}));
    EXPECT_FALSE(window.contains({12.1, 0.0}));
    EXPECT_FALSE(window.contains({-12.1, 0.0}));
    EXPECT_FALSE(window.contains({0.0, 7.1}));
    EXPECT_FALSE(window.contains({0.0, -7.1}));
}

} // namespace
