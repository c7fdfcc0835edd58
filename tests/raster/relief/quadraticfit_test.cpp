#include <zmt/raster/relief/quadraticfit.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "support/recordedreports.h"

namespace {

using ZMT::RASTER::QuadraticFit;
using ZMT::RASTER::QuadraticSurface;

constexpr float s_nan = std::numeric_limits<float>::quiet_NaN();

/// Rows of heights, the southern one first.
struct Heights {
    Heights(unsigned columns, unsigned lines) : width(columns), cells(std::size_t(columns) * lines) {}
    float & at(unsigned x, unsigned y) { return cells[std::size_t(y) * width + x]; }
    std::vector<const float *> rows() const {
        std::vector<const float *> result;
        for (std::size_t i = 0; i < cells.size(); i += width)
            result.push_back(&cells[i]);
        return result;
    }

    unsigned width;
    std::vector<float> cells;
};

Heights random(unsigned width, unsigned height, unsigned seed) {
    Heights result(width, height);
    std::mt19937 numbers(seed);
    std::uniform_real_distribution<float> range(7000.0F, 8800.0F);
    for (float & cell : result.cells)
        cell = range(numbers);
    return result;
}

double binomial(unsigned n, unsigned k) {
    return k == 0 ? 1.0 : binomial(n, k - 1) * (n - k + 1) / k;
}

/// Solves the normal equations of the six coefficients by elimination.
QuadraticSurface plainFit(Heights heights, unsigned size, unsigned column, double cellX, double cellY) {
    std::array<std::array<double, 7>, 6> a{};
    const int reach = int(size / 2);
    for (int j = -reach; j <= reach; ++j)
        for (int i = -reach; i <= reach; ++i) {
            const double x = i * cellX, y = j * cellY;
            const std::array<double, 6> f = {x * x, y * y, x * y, x, y, 1.0};
            const double weight =
                binomial(size - 1, unsigned(i + reach)) * binomial(size - 1, unsigned(j + reach));
            const double z = heights.at(unsigned(int(column) + i), unsigned(j + reach));
            for (std::size_t r = 0; r < 6; ++r) {
                for (std::size_t c = 0; c < 6; ++c)
                    a[r][c] += weight * f[r] * f[c];
                a[r][6] += weight * f[r] * z;
            }
        }
    for (std::size_t p = 0; p < 6; ++p) {
        std::size_t best = p;
        for (std::size_t r = p + 1; r < 6; ++r)
            if (std::abs(a[r][p]) > std::abs(a[best][p])) best = r;
        std::swap(a[p], a[best]);
        for (std::size_t r = 0; r < 6; ++r) {
            if (r == p) continue;
            const double factor = a[r][p] / a[p][p];
            for (std::size_t c = p; c < 7; ++c)
                a[r][c] -= factor * a[p][c];
        }
    }
    const auto solved = [&](std::size_t i) { return a[i][6] / a[i][i]; };
    return {solved(0), solved(1), solved(2), solved(3), solved(4)};
}

std::vector<QuadraticSurface> fitted(const Heights & heights, unsigned size, double cellX = 1.0,
                                     double cellY = 1.0) {
    std::vector<QuadraticSurface> surfaces(heights.width);
    QuadraticFit(size).fitRow(heights.rows().data(), heights.width, cellX, cellY, surfaces.data());
    return surfaces;
}

TEST(QuadraticFit, IsThatOfAPlainSolver) {
    for (const unsigned size : {3U, 5U, 9U, 15U}) {
        const Heights heights = random(size + 2, size, size);
        const auto surfaces = fitted(heights, size, 30.0, 20.0);
        for (unsigned column = size / 2; column < size / 2 + 3; ++column) {
            const QuadraticSurface expected = plainFit(heights, size, column, 30.0, 20.0);
            const QuadraticSurface & found = surfaces[column];
            EXPECT_NEAR(expected.x, found.x, 1e-9) << size;
            EXPECT_NEAR(expected.y, found.y, 1e-9) << size;
            EXPECT_NEAR(expected.xx, found.xx, 1e-9) << size;
            EXPECT_NEAR(expected.yy, found.yy, 1e-9) << size;
            EXPECT_NEAR(expected.xy, found.xy, 1e-9) << size;
        }
    }
}

TEST(QuadraticFit, OfThreeByThreeCellsHasHornsGradient) {
    Heights h = random(3, 3, 7);
    const QuadraticSurface found = fitted(h, 3, 30.0, 20.0)[1];
    const double east = double(h.at(2, 0)) + 2.0 * h.at(2, 1) + h.at(2, 2);
    const double west = double(h.at(0, 0)) + 2.0 * h.at(0, 1) + h.at(0, 2);
    const double south = double(h.at(0, 0)) + 2.0 * h.at(1, 0) + h.at(2, 0);
    const double north = double(h.at(0, 2)) + 2.0 * h.at(1, 2) + h.at(2, 2);
    EXPECT_NEAR((east - west) / (8.0 * 30.0), found.x, 1e-12);
    EXPECT_NEAR((north - south) / (8.0 * 20.0), found.y, 1e-12);
}

TEST(QuadraticFit, FindsASurfaceOfTheSecondDegreeItself) {
    for (const unsigned size : {3U, 7U}) {
        Heights heights(size, size);
        const double middle = size / 2;
        for (unsigned j = 0; j < size; ++j)
            for (unsigned i = 0; i < size; ++i) {
                const double x = i - middle, y = j - middle;
                heights.at(i, j) =
                    float(0.5 * x * x - 0.25 * y * y + 2.0 * x * y + 3.0 * x - 4.0 * y + 100.0);
            }
        const QuadraticSurface found = fitted(heights, size)[size / 2];
        EXPECT_NEAR(0.5, found.xx, 1e-12);
        EXPECT_NEAR(-0.25, found.yy, 1e-12);
        EXPECT_NEAR(2.0, found.xy, 1e-12);
        EXPECT_NEAR(3.0, found.x, 1e-12);
        EXPECT_NEAR(-4.0, found.y, 1e-12);
    }
}

TEST(QuadraticFit, IsNothingWhereAHeightOfTheWindowIs) {
    Heights heights = random(9, 5, 3);
    heights.at(3, 4) = s_nan;
    const auto surfaces = fitted(heights, 5);
    std::string known;
    for (const QuadraticSurface & surface : surfaces)
        known += std::isnan(surface.x + surface.y + surface.xx + surface.yy + surface.xy) ? '.' : 'x';
    EXPECT_EQ("......x..", known) << "two columns at each end, and those within reach of the hole";
    for (const QuadraticSurface & surface : surfaces)
        EXPECT_EQ(std::isnan(surface.x), std::isnan(surface.y));
}

TEST(QuadraticFit, ARowNarrowerThanTheWindowHasNone) {
    for (const QuadraticSurface & surface : fitted(random(4, 5, 3), 5))
        EXPECT_TRUE(std::isnan(surface.xx));
}

TEST(QuadraticFit, SizesThatAreNoneAreReported) {
    for (const auto & [size, taken] : {std::pair{0U, 3U}, {1U, 3U}, {4U, 5U}, {1000U, 255U}}) {
        const RecordedReports reports;
        EXPECT_EQ(taken, QuadraticFit(size).windowSize());
        EXPECT_EQ(1U, reports.size()) << size;
    }
    const RecordedReports reports;
    EXPECT_EQ(255U, QuadraticFit(255).windowSize());
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
