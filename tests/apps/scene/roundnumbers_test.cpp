#include "scene/roundnumbers.h"

#include <cmath>

#include <gtest/gtest.h>

namespace {

TEST(RoundNumbers, AreTheNextOneTwoOrFive) {
    const struct {
        double number, from, to;
    } cases[] = {{1.0, 1.0, 1.0},      {1.01, 2.0, 1.0},   {1.99, 2.0, 1.0}, {2.0, 2.0, 2.0},
                 {2.3, 5.0, 2.0},      {5.0, 5.0, 5.0},    {7.0, 10.0, 5.0}, {9.999, 10.0, 5.0},
                 {1000.0, 1e3, 1e3},   {0.03, 0.05, 0.02}, {0.1, 0.1, 0.1},  {1e-6, 1e-6, 1e-6},
                 {123456.0, 2e5, 1e5}, {4.9e8, 5e8, 2e8}};
    for (const auto & c : cases) {
        EXPECT_NEAR(roundNumberFrom(c.number), c.from, c.from * 1e-9) << c.number;
        EXPECT_NEAR(roundNumberTo(c.number), c.to, c.to * 1e-9) << c.number;
    }
}

TEST(RoundNumbers, EncloseEveryNumber) {
    for (int i = -600; i <= 600; ++i) {
        const double number = std::pow(10.0, i / 100.0);
        const double above = roundNumberFrom(number), below = roundNumberTo(number);
        EXPECT_GE(above, number * (1.0 - 1e-9)) << number;
        EXPECT_LE(below, number * (1.0 + 1e-9)) << number;
        EXPECT_LE(above / below, 2.5 + 1e-9) << number;
    }
}

TEST(RoundNumbers, AreLengthsInMetresAndKilometres) {
    EXPECT_EQ(roundLengthText(0.5), "0.5 m");
    EXPECT_EQ(roundLengthText(500.0), "500 m");
    EXPECT_EQ(roundLengthText(1000.0), "1 km");
    EXPECT_EQ(roundLengthText(200'000.0), "200 km");
}

} // namespace
