#include "core/vector/areafill.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

#include <gtest/gtest.h>

using ZMT::CORE::AreaFill;
using ZMT::CORE::PlanPoint;
using Ring = AreaFill::Ring;

namespace {

/// How often each pixel is covered, the northern row first: "." for never, a digit otherwise.
std::string picture(const std::vector<Ring> & rings, unsigned size, double halfX = 1.0, double halfZ = 1.0) {
    std::vector<float> vertices;
    AreaFill(halfX, halfZ, size).fill(rings, vertices);
    EXPECT_EQ(vertices.size() % 18, 0U);
    std::string text;
    for (unsigned row = size; row-- > 0;) {
        for (unsigned column = 0; column < size; ++column) {
            const double x = halfX * ((2.0 * column + 1.0) / size - 1.0);
            const double z = halfZ * ((2.0 * row + 1.0) / size - 1.0);
            unsigned count = 0;
            for (std::size_t i = 0; i < vertices.size(); i += 18) // south-west, ..., north-east
                if (x > vertices[i] && x < vertices[i + 6] && z > vertices[i + 2] && z < vertices[i + 8])
                    ++count;
            text += count == 0 ? '.' : char('0' + std::min(count, 9U));
        }
        text += '\n';
    }
    return text;
}

Ring rectangle(double west, double south, double east, double north) {
    return {{west, south}, {east, south}, {east, north}, {west, north}};
}

TEST(AreaFill, PixelsAreThoseWhoseMiddlesLieInside) {
    // Middles at -0.75, -0.25, 0.25, 0.75.
    EXPECT_EQ(picture({rectangle(-0.6, -0.6, 0.3, 0.1)}, 4), "....\n....\n.11.\n....\n");
    EXPECT_EQ(picture({{{-1.0, -1.0}, {1.0, -1.0}, {-1.0, 1.0}}}, 4), "....\n1...\n11..\n111.\n");
}

TEST(AreaFill, HolesAreLeftOpenWhicheverWayTheyTurn) {
    Ring hole = rectangle(-0.5, -0.5, 0.5, 0.5);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(picture({rectangle(-1.0, -1.0, 1.0, 1.0), hole}, 4), "1111\n1..1\n1..1\n1111\n");
        std::reverse(hole.begin(), hole.end());
    }
}

TEST(AreaFill, AreasMayReachFarBeyondThePicture) {
    EXPECT_EQ(picture({rectangle(-1e9, -1e9, 1e9, 1e9)}, 3), "111\n111\n111\n");
    EXPECT_EQ(picture({rectangle(-1e300, 0.0, 1e300, 1e300)}, 2), "11\n..\n");
    EXPECT_EQ(picture({rectangle(-9.0, -9.0, -2.0, 9.0)}, 2), "..\n..\n") << "to the west";
    EXPECT_EQ(picture({rectangle(2.0, -9.0, 9.0, 9.0)}, 2), "..\n..\n") << "to the east";
    EXPECT_EQ(picture({rectangle(-9.0, 2.0, 9.0, 9.0)}, 2), "..\n..\n") << "to the north";
    EXPECT_EQ(picture({rectangle(-9.0, -9.0, 9.0, 9.0), rectangle(0.0, -8.0, 8.0, 8.0)}, 2), "1.\n1.\n");
}

TEST(AreaFill, ThePictureNeedNotBeAsWideAsDeep) {
    EXPECT_EQ(picture({rectangle(-10.0, -0.1, 0.0, 0.1)}, 2, 10.0, 0.1), "1.\n1.\n");
}

TEST(AreaFill, WhatHasNoAreaFillsNothing) {
    EXPECT_EQ(picture({}, 2), "..\n..\n");
    EXPECT_EQ(picture({{}}, 2), "..\n..\n");
    EXPECT_EQ(picture({{{0.0, 0.0}}}, 2), "..\n..\n");
    EXPECT_EQ(picture({{{-1.0, -1.0}, {1.0, 1.0}, {-1.0, -1.0}}}, 2), "..\n..\n");
    EXPECT_EQ(picture({rectangle(-1.0, 0.5, 1.0, 0.5)}, 2), "..\n..\n");
    EXPECT_EQ(picture({rectangle(-1.0, -1.0, 1.0, 1.0), rectangle(-1.0, -1.0, 1.0, 1.0)}, 2), "..\n..\n");
}

TEST(AreaFill, NeighboursShareNoPixelAndLeaveNone) {
    // Borders right through the middles of pixels.
    for (const double x : {-0.75, -0.5, -0.25, 0.0, 0.1})
        for (const double slope : {0.0, 0.3}) {
            const Ring west = {{-1.0, -1.0}, {x, -1.0}, {x + slope, 1.0}, {-1.0, 1.0}};
            const Ring east = {{x, -1.0}, {1.0, -1.0}, {1.0, 1.0}, {x + slope, 1.0}};
            const std::string a = picture({west}, 8), b = picture({east}, 8);
            for (std::size_t i = 0; i < a.size(); ++i) {
                if (a[i] != '\n') {
                    EXPECT_NE(a[i], b[i]) << x << "\n" << a << b;
                }
            }
        }
}

TEST(AreaFill, EqualsTheCountOfCrossingsForRingsAtRandom) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> place(-1.4, 1.4);
    constexpr unsigned size = 70; // more than a word
    for (int round = 0; round < 20; ++round) {
        std::vector<Ring> rings(3);
        for (Ring & ring : rings)
            for (int i = 0; i < 9; ++i)
                ring.push_back({place(random), place(random)});
        std::string expected;
        for (unsigned row = size; row-- > 0;) {
            for (unsigned column = 0; column < size; ++column) {
                const double x = (2.0 * column + 1.0) / size - 1.0, z = (2.0 * row + 1.0) / size - 1.0;
                bool isInside = false;
                for (const Ring & ring : rings)
                    for (std::size_t i = 0, k = ring.size() - 1; i < ring.size(); k = i++)
                        if ((ring[i].z > z) != (ring[k].z > z) &&
                            x < (ring[k].x - ring[i].x) * (z - ring[i].z) / (ring[k].z - ring[i].z) +
                                    ring[i].x)
                            isInside = !isInside;
                expected += isInside ? '1' : '.';
            }
            expected += '\n';
        }
        EXPECT_EQ(picture(rings, size), expected) << "round " << round;
    }
}

TEST(AreaFill, EqualRowsAreOneRectangle) {
    std::vector<float> vertices;
    AreaFill(1.0, 1.0, 1024).fill({rectangle(-0.5, -0.5, 0.5, 0.5)}, vertices);
    EXPECT_EQ(vertices.size(), 18U);
}

} // namespace
