#include "nbx/image/atlas/skyline.h"

#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

using NBX::Skyline;

/// The height at every x.
std::string drawn(const Skyline & skyline) {
    std::string text;
    for (std::size_t i = 0; i < skyline.size(); ++i)
        text += std::string(skyline.width(i), static_cast<char>('0' + skyline.y(i)));
    return text;
}

TEST(Skyline, IsFlatAtFirst) {
    const Skyline skyline(5);
    EXPECT_EQ(drawn(skyline), "00000");
    EXPECT_EQ(skyline.size(), 1U);
    EXPECT_EQ(skyline.x(1), 5U);
}

TEST(Skyline, CoversPartsOfSteps) {
    Skyline skyline(9);
    skyline.cover(0, 3, 5, 2);
    EXPECT_EQ(drawn(skyline), "000220000");
    skyline.cover(0, 0, 2, 1);
    EXPECT_EQ(drawn(skyline), "110220000");
    skyline.cover(3, 7, 9, 4);
    EXPECT_EQ(drawn(skyline), "110220044");
    skyline.cover(1, 2, 8, 5);
    EXPECT_EQ(drawn(skyline), "115555554");
    EXPECT_EQ(skyline.size(), 3U);
    skyline.cover(0, 0, 9, 7);
    EXPECT_EQ(drawn(skyline), "777777777");
}

TEST(Skyline, NeighboursAtOneHeightAreOneStep) {
    Skyline skyline(6);
    skyline.cover(0, 0, 2, 3);
    skyline.cover(1, 4, 6, 3);
    EXPECT_EQ(skyline.size(), 3U);
    skyline.cover(1, 2, 4, 3);
    EXPECT_EQ(drawn(skyline), "333333");
    EXPECT_EQ(skyline.size(), 1U);
}

TEST(Skyline, AStepThatIsGivenUpRisesToItsLowerNeighbour) {
    Skyline skyline(6);
    skyline.cover(0, 0, 1, 3);
    skyline.cover(1, 4, 6, 5);
    EXPECT_EQ(drawn(skyline), "300055");
    EXPECT_TRUE(skyline.raise(1));
    EXPECT_EQ(drawn(skyline), "333355");
    EXPECT_TRUE(skyline.raise(0));
    EXPECT_EQ(drawn(skyline), "555555");
    EXPECT_EQ(skyline.size(), 1U);
    EXPECT_FALSE(skyline.raise(0));
}

TEST(Skyline, ALastStepHasOneNeighbour) {
    Skyline skyline(4);
    skyline.cover(0, 0, 3, 2);
    EXPECT_TRUE(skyline.raise(1));
    EXPECT_EQ(drawn(skyline), "2222");
}

TEST(Skyline, IsThatOfARowOfHeights) {
    std::mt19937 random(1);
    for (int run = 0; run < 200; ++run) {
        std::string expected(12, '0');
        Skyline skyline(12);
        for (int i = 0; i < 20; ++i) {
            const std::size_t first = random() % skyline.size();
            const unsigned x = skyline.x(first) + random() % skyline.width(first);
            const unsigned end = x + 1 + random() % (12 - x), top = 1 + random() % 9;
            skyline.cover(first, x, end, top);
            for (unsigned k = x; k < end; ++k)
                expected[k] = static_cast<char>('0' + top);
            ASSERT_EQ(drawn(skyline), expected);
            for (std::size_t k = 0; k + 1 < skyline.size(); ++k)
                ASSERT_NE(skyline.y(k), skyline.y(k + 1));
        }
    }
}

} // namespace
