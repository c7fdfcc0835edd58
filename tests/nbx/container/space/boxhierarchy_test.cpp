#include "nbx/container/space/boxhierarchy.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>

#include <gtest/gtest.h>

using namespace NBX;

namespace {

using V = Vector3Base<double>;
using Box = BoxHierarchy::Box;

struct Boxes {
    std::vector<Box> all;
    std::vector<std::vector<std::uint32_t>> leaves;
    BoxHierarchy hierarchy;

    Boxes(std::vector<Box> boxes, unsigned leafSize) : all(std::move(boxes)) {
        hierarchy = BoxHierarchy(all, leafSize, [&](const Box * first, unsigned count) {
            leaves.emplace_back();
            for (unsigned i = 0; i < count; ++i)
                leaves.back().push_back(first[i].number);
        });
    }
    std::set<std::uint32_t> metBy(const Ray & ray, double limit = std::numeric_limits<double>::infinity()) {
        std::set<std::uint32_t> met;
        hierarchy.visit(
            BoxRay(ray), limit,
            [&](std::uint32_t leaf) {
                EXPECT_EQ(met.count(leaves[leaf].front()), 0U) << "visited twice";
                met.insert(leaves[leaf].begin(), leaves[leaf].end());
                return limit;
            },
            [](std::uint32_t) {});
        return met;
    }
};

/// The parameter at which the ray enters a box that is wider by `margin`; infinite where it misses.
double enter(const Ray & ray, const Box & box, double margin) {
    constexpr double never = std::numeric_limits<double>::infinity();
    double enter = 0.0, leave = never;
    for (unsigned axis = 0; axis < 3; ++axis) {
        const double from = ray.getOrigin()[axis], along = ray.getDirection()[axis];
        const double low = box.low[axis] - margin, high = box.high[axis] + margin;
        if (along == 0.0 && !(from >= low && from <= high)) return never;
        if (along == 0.0) continue;
        enter = std::max(enter, std::min((low - from) / along, (high - from) / along));
        leave = std::min(leave, std::max((low - from) / along, (high - from) / along));
    }
    return enter <= leave ? enter : never;
}

std::vector<Box> randomBoxes(std::mt19937 & random, unsigned count) {
    std::uniform_real_distribution<float> place(-100, 100), size(0, 10);
    std::vector<Box> boxes;
    for (unsigned i = 0; i < count; ++i) {
        Box box{{}, {}, i};
        for (unsigned axis = 0; axis < 3; ++axis) {
            box.low[axis] = place(random);
            // Some are flat.
            box.high[axis] = box.low[axis] + (random() % 4 == 0 ? 0.0F : size(random));
        }
        boxes.push_back(box);
    }
    return boxes;
}

TEST(BoxRay, IsOfNoUseWithoutADirectionOrNumbers) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN(),
                     infinite = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(BoxRay(Ray(V(), V())).isUsable());
    for (const double bad : {nan, infinite, -infinite})
        for (unsigned axis = 0; axis < 3; ++axis) {
            V v(1, 2, 3);
            v[axis] = bad;
            EXPECT_FALSE(BoxRay(Ray(V(), v)).isUsable());
            EXPECT_FALSE(BoxRay(Ray(v, V(1, 0, 0))).isUsable());
        }
}

TEST(BoxRay, HasTheLengthOfItsDirectionHoweverShortOrLong) {
    for (const double length : {1e-200, 1e-3, 1.0, 1e200}) {
        const BoxRay ray(Ray(V(), V(3, 0, -4) * (length / 5.0)));
        EXPECT_TRUE(ray.isUsable());
        EXPECT_NEAR(ray.length() / length, 1.0, 1e-12);
        EXPECT_NEAR((ray.along() - V(0.6, 0, -0.8)).length(), 0.0, 1e-12);
        EXPECT_EQ(ray.isBackward()[0], 0);
        EXPECT_EQ(ray.isBackward()[2], 1);
    }
}

TEST(BoxRay, InvertsItsDirectionWhereItMoves) {
    const BoxRay ray(Ray(V(0, 0, 0), V(3e-310, -8, 0)));
    EXPECT_FALSE(std::isfinite(ray.inverse()[0]));
    EXPECT_EQ(ray.inverse()[1], -1.0);
    EXPECT_FALSE(std::isfinite(ray.inverse()[2]));
    for (unsigned axis = 0; axis < 3; ++axis)
        EXPECT_TRUE(std::isfinite(ray.finiteInverse()[axis])) << axis;
    EXPECT_EQ(ray.finiteInverse()[1], -1.0F);
}

TEST(BoxHierarchy, EachBoxIsInOneLeaf) {
    std::mt19937 random(5);
    for (const unsigned count : {0U, 1U, 2U, 7U, 8U, 9U, 300U})
        for (const unsigned leafSize : {1U, 4U}) {
            const Boxes boxes(randomBoxes(random, count), leafSize);
            std::vector<bool> seen(count);
            for (const auto & leaf : boxes.leaves) {
                EXPECT_LE(leaf.size(), leafSize);
                for (const std::uint32_t number : leaf) {
                    EXPECT_FALSE(seen[number]);
                    seen[number] = true;
                }
            }
            EXPECT_EQ(std::count(seen.begin(), seen.end(), true), std::ptrdiff_t(count));
        }
}

TEST(BoxHierarchy, EveryBoxThatARayEntersIsVisitedAndNoneFarFromIt) {
    std::mt19937 random(6);
    std::uniform_real_distribution<double> place(-150, 150);
    for (const unsigned count : {1U, 20U, 400U}) {
        Boxes boxes(randomBoxes(random, count), 1);
        for (unsigned n = 0; n < 500; ++n) {
            const V from(place(random), place(random), place(random));
            V along(place(random), place(random), place(random));
            // Some go along an axis, some through the corner of a box, some backwards along it.
            const Box & aim = boxes.all[random() % count];
            const V corner(aim.low[0], aim.high[1], aim.low[2]);
            if (n % 4 == 1) along = corner - from;
            if (n % 4 == 2) along = V(n % 8 == 2 ? 1.0 : -1.0, 0, 0);
            const Ray ray(n % 4 == 2 ? V(from.x, corner.y, corner.z) : from, along);
            const double limit = n % 3 == 0 ? 0.5 : std::numeric_limits<double>::infinity();
            const std::set<std::uint32_t> met = boxes.metBy(ray, limit);
            for (const Box & box : boxes.all) {
                const bool isMet = met.count(box.number) > 0;
                if (enter(ray, box, 1e-9) < limit * 0.99) {
                    ASSERT_TRUE(isMet) << n;
                }
                if (isMet) {
                    ASSERT_LE(enter(ray, box, 0.01), limit * 1.01) << n;
                }
            }
        }
    }
}

TEST(BoxHierarchy, NearLeavesComeFirstAndFarOnesNotAtAllBehindAHit) {
    std::vector<Box> row;
    for (unsigned i = 0; i < 100; ++i) {
        const auto x = float((i * 37) % 100);
        row.push_back({{x, 0, 0}, {x + 0.5F, 1, 1}, i});
    }
    const Boxes boxes(row, 1);
    std::vector<float> seen;
    boxes.hierarchy.visit(
        BoxRay(Ray(V(-5, 0.5, 0.5), V(2, 0, 0))), 1e9,
        [&](std::uint32_t leaf) {
            seen.push_back(row[boxes.leaves[leaf].front()].low[0]);
            return seen.back() < 30 ? 1e9 : 17.75; // at x = 30.5
        },
        [](std::uint32_t) {});
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.size(), 31U);
}

TEST(BoxHierarchy, WhatWillBeVisitedIsAnnouncedBefore) {
    std::mt19937 random(8);
    const Boxes boxes(randomBoxes(random, 5000), 1);
    std::set<std::uint32_t> announced;
    unsigned visited = 0;
    boxes.hierarchy.visit(
        BoxRay(Ray(V(-200, 0, 0), V(1, 0.01, 0.01))), 1e9,
        [&](std::uint32_t leaf) {
            EXPECT_EQ(announced.count(leaf), 1U);
            ++visited;
            return 1e9;
        },
        [&](std::uint32_t leaf) { announced.insert(leaf); });
    EXPECT_GT(visited, 0U);
}

} // namespace
