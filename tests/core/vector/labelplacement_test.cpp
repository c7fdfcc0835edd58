#include "core/vector/labelplacement.h"

#include <random>

#include <gtest/gtest.h>

namespace {

using namespace ZMT::CORE;
using Rectangle = LabelPlacement::Rectangle;

TEST(LabelPlacementTest, WhatTouchesDoesNotOverlap) {
    LabelPlacement placement(200, 100);
    placement.take({50, 40, 100, 60});
    struct Row {
        const char * name;
        Rectangle rectangle;
        bool isFree;
    };
    for (const auto & [name, rectangle, isFree] : {Row{"the same", {50, 40, 100, 60}, false},
                                                   {"within", {60, 45, 61, 46}, false},
                                                   {"round it", {0, 0, 200, 100}, false},
                                                   {"across", {70, 0, 71, 100}, false},
                                                   {"to the left", {0, 40, 50, 60}, true},
                                                   {"a little more", {0, 40, 50.01, 60}, false},
                                                   {"to the right", {100, 40, 150, 60}, true},
                                                   {"a little less", {99.99, 40, 150, 60}, false},
                                                   {"above", {50, 60, 100, 70}, true},
                                                   {"a little lower", {50, 59.99, 100, 70}, false},
                                                   {"below", {50, 30, 100, 40}, true},
                                                   {"a little higher", {50, 30, 100, 40.01}, false}})
        EXPECT_EQ(isFree, placement.isFree(rectangle)) << name;
    EXPECT_TRUE(placement.isTaken(75, 50));
    EXPECT_TRUE(placement.isTaken(52, 41));
    EXPECT_TRUE(placement.isTaken(99, 59));
    for (const auto & [x, y] :
         {std::pair(75, 61), {75, 39}, {101, 50}, {49, 50}, {-1, 50}, {75, -1}, {201, 50}, {75, 101}})
        EXPECT_FALSE(placement.isTaken(x, y)) << x << " " << y;
}

TEST(LabelPlacementTest, ThePictureIsAllThatThereIs) {
    const LabelPlacement placement(200, 100);
    EXPECT_TRUE(placement.isInside({0, 0, 200, 100}));
    EXPECT_FALSE(placement.isInside({-0.1, 0, 10, 10}));
    EXPECT_FALSE(placement.isInside({0, -0.1, 10, 10}));
    EXPECT_FALSE(placement.isInside({0, 0, 200.1, 10}));
    EXPECT_FALSE(placement.isInside({0, 0, 10, 100.1}));
}

TEST(LabelPlacementTest, ManyAreFoundAsInAList) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> part(0.0, 1.0);
    for (const auto & [width, height] : {std::pair(1U, 1U), {64U, 64U}, {65U, 300U}, {1920U, 1080U}}) {
        LabelPlacement placement(width, height);
        std::vector<Rectangle> taken;
        for (int i = 0; i < 2000; ++i) {
            const double w = std::min(part(random) * 150.0, double(width)), h = part(random) * 30.0;
            const double x = part(random) * (width - w), y = part(random) * std::max(0.0, height - h);
            const Rectangle r{x, y, x + w, std::min(y + h, double(height))};
            const bool isFree = std::none_of(taken.begin(), taken.end(),
                                             [&](const Rectangle & other) { return other.overlaps(r); });
            ASSERT_EQ(isFree, placement.isFree(r)) << i;
            const double px = part(random) * width, py = part(random) * height;
            ASSERT_LE(placement.isTaken(px, py),
                      std::any_of(taken.begin(), taken.end(),
                                  [&](const Rectangle & other) { return other.contains(px, py); }))
                << i;
            if (!isFree) continue;
            placement.take(r);
            taken.push_back(r);
        }
    }
}

} // namespace
