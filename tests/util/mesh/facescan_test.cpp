#include "util/mesh/facescan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using ZMT::UTIL::FaceScan;
using Face = FaceScan::Face;
using Corner = FaceScan::Corner;
using Worst = FaceScan::Worst;

constexpr float s_voidHeight = std::numeric_limits<float>::quiet_NaN();

std::int64_t turn(const Corner & a, const Corner & b, std::int64_t column, std::int64_t row) {
    return (b.column - a.column) * (row - a.row) - (b.row - a.row) * (column - a.column);
}

/// A raster whose faces are looked at vertex by vertex as well.
struct Raster {
    Raster(std::int32_t columns, std::int32_t rows)
        : columns(columns), rows(rows), heights(std::size_t(columns) * std::size_t(rows), 0.0f) {}

    float & at(std::int32_t column, std::int32_t row) { return heights[std::size_t(row) * columns + column]; }
    Corner corner(std::int32_t column, std::int32_t row) { return {column, row, double(at(column, row))}; }
    Face face(Corner a, Corner b, Corner c) {
        return {{corner(a.column, a.row), corner(b.column, b.row), corner(c.column, c.row)}, {}};
    }
    Worst scan(const Face & face, bool hasVoids = false, double noise = 0.0) const {
        return FaceScan(heights.data(), std::uint32_t(columns), hasVoids, noise).worst(face);
    }

    /// The error of each vertex of a face but the corners, by whole numbers in the order of the rows.
    template <class Visit> void eachIn(const Face & face, Visit visit) const {
        const auto & [a, b, c] = face.corners;
        for (std::int32_t row = 0; row < rows; ++row)
            for (std::int32_t column = 0; column < columns; ++column) {
                const std::int64_t u = turn(b, c, column, row), v = turn(c, a, column, row),
                                   w = turn(a, b, column, row);
                const int zeros = (u == 0) + (v == 0) + (w == 0);
                if (u < 0 || v < 0 || w < 0 || zeros == 2) continue;
                const double plane =
                    (double(u) * a.height + double(v) * b.height + double(w) * c.height) / double(u + v + w);
                const std::size_t cell = std::size_t(row) * columns + std::size_t(column);
                visit(static_cast<std::uint32_t>(cell), std::fabs(plane - double(heights[cell])),
                      std::min({u, v, w}));
            }
    }

    std::int32_t columns, rows;
    std::vector<float> heights;
};

TEST(FaceScan, FindsWhatLookingAtAllVerticesFinds) {
    constexpr unsigned seed = 7;
    std::mt19937 random(seed);
    Raster raster(61, 47);
    std::normal_distribution<float> height(0.0f, 100.0f);
    for (float & h : raster.heights)
        h = height(random);
    std::uniform_int_distribution<std::int32_t> column(0, 60), row(0, 46);
    for (int i = 0; i < 3000; ++i) {
        // Every other one is small, and lies along the rows or on one line with them.
        const Corner a{column(random), row(random), 0.0};
        Corner b{column(random), row(random), 0.0}, c{column(random), row(random), 0.0};
        if (i % 2) b = {std::min(a.column + i % 9, 60), a.row, 0.0};
        if (i % 4 == 3) c = {a.column, std::min(a.row + i % 5, 46), 0.0};
        const std::int64_t area = turn(a, b, c.column, c.row);
        if (area == 0) continue;
        const Face face = area > 0 ? raster.face(a, b, c) : raster.face(a, c, b);
        Worst expected;
        raster.eachIn(face, [&](std::uint32_t cell, double error, std::int64_t) {
            if (error > expected.error) expected = {error, cell};
        });
        const Worst found = raster.scan(face);
        ASSERT_NEAR(expected.error, found.error, 1e-9) << "seed " << seed << ", face " << i;
        ASSERT_EQ(expected.cell, found.cell) << "seed " << seed << ", face " << i;
    }
}

TEST(FaceScan, OfEqualErrorsTheFirstVertexCounts) {
    Raster raster(40, 40);
    for (const auto & [column, row] : {std::pair(9, 5), {21, 5}, {3, 6}, {2, 30}})
        raster.at(column, row) = 2.0f;
    const Worst found = raster.scan(raster.face({0, 0, 0}, {39, 0, 0}, {0, 39, 0}));
    EXPECT_EQ(2.0, found.error);
    EXPECT_EQ(5u * 40 + 9, found.cell);
    raster.at(10, 5) = 2.0f; // beside it
    EXPECT_EQ(5u * 40 + 9, raster.scan(raster.face({0, 0, 0}, {39, 0, 0}, {0, 39, 0})).cell);
    // In the last rows, which are short.
    Raster narrow(4, 9);
    narrow.at(1, 4) = narrow.at(2, 4) = narrow.at(1, 5) = 3.0f;
    EXPECT_EQ(4u * 4 + 1, narrow.scan(narrow.face({0, 0, 0}, {3, 0, 0}, {0, 8, 0})).cell);
}

TEST(FaceScan, CornersAreLeftOutAndEdgesAreNot) {
    Raster raster(5, 5);
    Face face = raster.face({0, 0, 0}, {4, 0, 0}, {0, 4, 0});
    raster.at(0, 0) = raster.at(4, 0) = raster.at(0, 4) = 9.0f; // not what the face has there
    raster.at(4, 4) = 9.0f;                                     // outside
    EXPECT_EQ(0.0, raster.scan(face).error);
    raster.at(2, 2) = 1.0f; // on the slope
    EXPECT_EQ(12u, raster.scan(face).cell);
    raster.at(2, 0) = 2.0f;
    EXPECT_EQ(2u, raster.scan(face).cell);
    raster.at(0, 3) = -3.0f;
    EXPECT_EQ(15u, raster.scan(face).cell);
}

TEST(FaceScan, ErrorsNoLargerThanTheNoiseAreNone) {
    Raster raster(5, 5);
    raster.at(1, 1) = 0.5f;
    const Face face = raster.face({0, 0, 0}, {4, 0, 0}, {0, 4, 0});
    EXPECT_EQ(0.0, raster.scan(face, false, 0.5).error);
    EXPECT_EQ(0.5, raster.scan(face, false, 0.49).error);
}

TEST(FaceScan, ASurfaceOverVerticesWithoutHeightsIsWrongWhereTheseAreDeepest) {
    Raster raster(9, 9);
    raster.at(6, 1) = 50.0f;
    const Face face = raster.face({0, 0, 0}, {8, 0, 0}, {0, 8, 0});
    for (const auto & [column, row] : {std::pair(1, 1), {2, 2}, {3, 0}})
        raster.at(column, row) = s_voidHeight;
    const Worst found = raster.scan(face, true);
    EXPECT_EQ(Worst::s_outline, found.error);
    EXPECT_EQ(2u * 9 + 2, found.cell);
    raster.at(1, 1) = raster.at(2, 2) = raster.at(3, 0) = 0.0f;
    EXPECT_EQ(50.0, raster.scan(face, true).error);
}

TEST(FaceScan, AHoleIsWrongWhereHeightsLieInItThatTheSurfaceBesideItLeavesOut) {
    Raster raster(9, 9);
    std::fill(raster.heights.begin(), raster.heights.end(), s_voidHeight);
    raster.at(0, 0) = raster.at(8, 0) = raster.at(4, 0) = 1.0f;
    Face face = raster.face({0, 0, 0}, {8, 0, 0}, {0, 8, 0}); // the third has none
    EXPECT_FALSE(FaceScan::isSurface(face));
    EXPECT_EQ(4u, raster.scan(face, true).cell);
    face.goesOn[0] = true; // below the lower edge, on which the height lies
    EXPECT_EQ(0.0, raster.scan(face, true).error);
    raster.at(2, 2) = 7.0f;
    raster.at(1, 1) = 7.0f;
    EXPECT_EQ(Worst::s_outline, raster.scan(face, true).error);
    EXPECT_EQ(2u * 9 + 2, raster.scan(face, true).cell);
}

} // namespace
