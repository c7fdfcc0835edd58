#include "nbx/text/distancefield.h"

#include <cmath>

#include <gtest/gtest.h>

namespace {

using namespace NBX;

std::vector<OutlinePiece> square(double low, double high, bool turned = false) {
    std::vector<OutlinePiece> pieces = {
        {low, low, high, low}, {high, low, high, high}, {high, high, low, high}, {low, high, low, low}};
    for (OutlinePiece & piece : pieces)
        if (turned) piece = {piece.y0, piece.x0, piece.y1, piece.x1};
    return pieces;
}

int at(const FontFace::DistanceField & field, int x, int y) {
    return field.distances[std::size_t(y - field.bottom) * field.width + std::size_t(x - field.left)];
}

TEST(DistanceField, ReachesBeyondTheOutline) {
    const auto field = distanceFieldOf(square(-2.5, 10.25));
    EXPECT_EQ(-3 - 16, field.left);
    EXPECT_EQ(-3 - 16, field.bottom);
    EXPECT_EQ(unsigned(11 + 16 + 19), field.width);
    EXPECT_EQ(field.width, field.height);
    EXPECT_EQ(std::size_t(field.width) * field.height, field.distances.size());
}

TEST(DistanceField, TellsDistancesInEighthsOfATexel) {
    for (const bool turned : {false, true}) {
        const auto field = distanceFieldOf(square(0.0, 40.0, turned));
        EXPECT_EQ(128 + 4, at(field, 0, 20));
        EXPECT_EQ(128 - 4, at(field, -1, 20));
        EXPECT_EQ(128 + 12, at(field, 20, 1));
        EXPECT_EQ(128 - 12, at(field, 20, -2));
        EXPECT_EQ(255, at(field, 20, 20)) << "as far as it reaches";
        EXPECT_EQ(0, at(field, 20, -16) - 4) << "15.5 away";
        EXPECT_EQ(0, at(field, -16, -16));
        EXPECT_EQ(std::lround(128 - std::hypot(3.5, 4.5) * 8), at(field, 43, 44)) << "from a corner";
    }
}

TEST(DistanceField, HolesAreOutside) {
    std::vector<OutlinePiece> ring = square(0.0, 60.0);
    const std::vector<OutlinePiece> hole = square(20.0, 40.0, true);
    ring.insert(ring.end(), hole.begin(), hole.end());
    const auto field = distanceFieldOf(ring);
    EXPECT_EQ(128 - 76, at(field, 29, 29));
    EXPECT_EQ(128 + 4, at(field, 19, 30));
    EXPECT_EQ(128 + 76, at(field, 30, 50));
}

TEST(DistanceField, WhatIsTurnedRoundTwiceIsWithin) {
    std::vector<OutlinePiece> both = square(0.0, 40.0);
    const std::vector<OutlinePiece> other = square(20.0, 60.0);
    both.insert(both.end(), other.begin(), other.end());
    const auto field = distanceFieldOf(both);
    EXPECT_GT(at(field, 30, 30), 128);
    EXPECT_GT(at(field, 10, 10), 128);
    EXPECT_GT(at(field, 50, 50), 128);
    EXPECT_LT(at(field, 10, 50), 128);
}

TEST(DistanceField, PiecesMayMeetAtTheMiddlesOfTexels) {
    // At half a texel's height, on the side that is crossed first.
    const auto field = distanceFieldOf({{0, 0, 60, 0},
                                        {60, 0, 60, 60},
                                        {60, 60, 0, 60},
                                        {0, 60, 0, 30.5},
                                        {0, 30.5, 0, 20.5},
                                        {0, 20.5, 0, 0}});
    for (const int y : {19, 20, 21, 29, 30, 31}) {
        EXPECT_EQ(255, at(field, 30, y)) << y;
        EXPECT_EQ(128 - 36, at(field, 64, y)) << y;
    }
}

TEST(DistanceField, OutlinesWithoutAreaHaveNoInside) {
    EXPECT_TRUE(distanceFieldOf({}).distances.empty());
    EXPECT_EQ(0U, distanceFieldOf({}).width);
    const auto line = distanceFieldOf({{0, 0.5, 10, 0.5}, {10, 0.5, 0, 0.5}});
    EXPECT_EQ(128, at(line, 5, 0));
    EXPECT_EQ(120, at(line, 5, 1));
    const auto point = distanceFieldOf({{3, 3, 3, 3}});
    EXPECT_LT(at(point, 3, 3), 128);
}

} // namespace
