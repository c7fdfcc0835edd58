#include "scene/groundmeasure.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "landscape/landscape.h"

namespace {

using Point = NBX::Vector3Base<double>;
constexpr double s_nan = std::numeric_limits<double>::quiet_NaN();

Point at(double x, double y) {
    return {x, 0.0, y};
}

/// Climbs by 3 in 4 to the east.
double slope(double x, double) {
    return 0.75 * x;
}

TEST(ProfileAlong, APlaneIsMeasuredExactly) {
    const GroundProfile profile = profileAlong({at(0.0, 0.0), at(40.0, 0.0), at(40.0, 30.0)}, 7.0, slope);
    EXPECT_DOUBLE_EQ(profile.length, 70.0);
    EXPECT_NEAR(profile.groundLength, 50.0 + 30.0, 1e-12);
    EXPECT_NEAR(profile.ascent, 30.0, 1e-12);
    EXPECT_EQ(profile.descent, 0.0);
    EXPECT_EQ(profile.lowest, 0.0);
    EXPECT_EQ(profile.highest, 30.0);
    ASSERT_EQ(profile.samples.size(), 12U) << "6 and 5 parts, each at most 7 long";
    EXPECT_EQ(profile.samples[6].x, 40.0) << "the corner is one of them";
    EXPECT_EQ(profile.samples[6].y, 0.0);
    EXPECT_EQ(profile.samples.back().distance, 70.0);
    for (const auto & sample : profile.samples)
        EXPECT_EQ(sample.height, slope(sample.x, sample.y));
}

TEST(ProfileAlong, UpAndDownAreToldApart) {
    const auto hill = [](double x, double) { return -std::abs(x); };
    const GroundProfile profile = profileAlong({at(-3.0, 0.0), at(2.0, 0.0)}, 1.0, hill);
    EXPECT_DOUBLE_EQ(profile.ascent, 3.0);
    EXPECT_DOUBLE_EQ(profile.descent, 2.0);
}

TEST(ProfileAlong, ACurveIsMeasuredToAThousandth) {
    const auto hill = [](double x, double y) { return 400.0 * std::cos(x / 500.0) * std::cos(y / 300.0); };
    double plain = 0.0, before = hill(0.0, 0.0);
    constexpr int steps = 2'000'000;
    for (int i = 1; i <= steps; ++i) {
        const double here = hill(4000.0 * i / steps, 1000.0 * i / steps);
        plain += std::hypot(std::hypot(4000.0, 1000.0) / steps, here - before);
        before = here;
    }
    const GroundProfile profile = profileAlong({at(0.0, 0.0), at(4000.0, 1000.0)}, 10.0, hill);
    EXPECT_NEAR(profile.groundLength / plain, 1.0, 1e-3);
    EXPECT_GT(profile.groundLength, 1.05 * profile.length) << "a line that could not tell";
}

TEST(ProfileAlong, GroundThatIsMissingIsAGap) {
    const auto lake = [](double x, double) { return x > 10.0 && x < 20.0 ? s_nan : 5.0; };
    const GroundProfile profile = profileAlong({at(0.0, 0.0), at(30.0, 0.0)}, 1.0, lake);
    EXPECT_TRUE(profile.hasGaps && profile.hasHeights);
    EXPECT_DOUBLE_EQ(profile.groundLength, 30.0);
    EXPECT_EQ(profile.ascent + profile.descent, 0.0);
    const auto gap = [](double x, double) { return x > 10.0 && x < 20.0 ? s_nan : 0.5 * x; };
    EXPECT_DOUBLE_EQ(profileAlong({at(0.0, 0.0), at(30.0, 0.0)}, 1.0, gap).ascent, 15.0);
    const GroundProfile none =
        profileAlong({at(0.0, 0.0), at(1.0, 0.0)}, 1.0, [](double, double) { return -HUGE_VAL; });
    EXPECT_FALSE(none.hasHeights);
    EXPECT_DOUBLE_EQ(none.groundLength, 1.0);
}

TEST(ProfileAlong, LinesOfFewOrTooManySamples) {
    EXPECT_TRUE(profileAlong({}, 1.0, slope).samples.empty());
    EXPECT_EQ(profileAlong({at(1.0, 2.0)}, 1.0, slope).samples.size(), 1U);
    EXPECT_EQ(profileAlong({at(1.0, 2.0), at(1.0, 2.0)}, 1.0, slope).samples.size(), 1U);
    EXPECT_LE(profileAlong({at(0.0, 0.0), at(1e9, 0.0)}, 1.0, slope).samples.size(),
              mostProfileSamples + 1.0);
}

TEST(ProfileText, IsATable) {
    const auto lake = [](double x, double) { return x > 0.5 ? s_nan : 4.0625; };
    EXPECT_EQ(profileText(profileAlong({at(0.0, 3.0), at(1.0, 3.0)}, 1.0, lake)),
              "distance,x,y,height\n0.000,0.000,3.000,4.062\n1.000,1.000,3.000,\n");
}

TEST(PlanArea, OfPolygons) {
    EXPECT_EQ(planArea({}), 0.0);
    EXPECT_EQ(planArea({at(1.0, 1.0), at(5.0, 5.0)}), 0.0);
    const std::vector<Point> bent = {at(0.0, 0.0), at(4.0, 0.0), at(4.0, 4.0), at(2.0, 1.0), at(0.0, 4.0)};
    EXPECT_DOUBLE_EQ(planArea(bent), 10.0);
    EXPECT_DOUBLE_EQ(planArea({bent.rbegin(), bent.rend()}), 10.0) << "either way round";
    // Far from the origin.
    EXPECT_NEAR(planArea({at(5e6, 5e6), at(5e6 + 1.0, 5e6), at(5e6 + 1.0, 5e6 + 1.0)}), 0.5, 1e-9);
}

TEST(GroundArea, OfASlopeIsExact) {
    const std::vector<Point> triangle = {at(10.0, 10.0), at(90.0, 20.0), at(40.0, 70.0)};
    EXPECT_NEAR(groundArea(triangle, 3.0, slope), 1.25 * planArea(triangle), 1e-9);
    EXPECT_NEAR(groundArea(triangle, 1e6, slope), 1.25 * planArea(triangle), 1e-9) << "cells larger than it";
    EXPECT_EQ(groundArea(triangle, 3.0, [](double, double) { return s_nan; }), planArea(triangle));
    EXPECT_EQ(groundArea({at(0.0, 0.0), at(1.0, 1.0), at(2.0, 2.0)}, 1.0, slope), 0.0);
}

TEST(GroundArea, OfABowlAgreesWithItsIntegral) {
    // z = r^2 / 2 has the area 2 pi / 3 ((1 + R^2)^1.5 - 1) within R.
    const auto bowl = [](double x, double y) { return (x * x + y * y) / 2.0; };
    std::vector<Point> circle;
    for (int i = 0; i < 2000; ++i)
        circle.push_back(at(2.0 * std::cos(i * M_PI / 1000.0), 2.0 * std::sin(i * M_PI / 1000.0)));
    const double exact = 2.0 * M_PI / 3.0 * (std::pow(5.0, 1.5) - 1.0);
    EXPECT_NEAR(groundArea(circle, 0.01, bowl) / exact, 1.0, 1e-3);
}

/// What a raster says, by its own cells: triangles from south-west to north-east.
TEST(GroundArea, OfRealGroundAgreesWithThatOfItsCells) {
    LandscapeOptions options;
    options.terrain = ZMT_DATA_DIR "/../tests/data/jacksboro_heights.tif";
    const Landscape landscape(options);
    const auto & raster = *landscape.grid().rasterData();
    const double cell = raster.cellSizeX();
    ASSERT_DOUBLE_EQ(cell, raster.cellSizeY());
    // Far from the border, where a warped raster has no heights.
    const unsigned first = std::min(landscape.grid().sizeX(), landscape.grid().sizeY()) / 2 - 50;
    const unsigned last = first + 100;
    const auto height = [&](unsigned x, unsigned y) {
        return landscape.grid().vertex(x, y).y + landscape.terrain()->origin().y;
    };
    double plain = 0.0;
    for (unsigned y = first; y < last; ++y)
        for (unsigned x = first; x < last; ++x) {
            const double a = height(x, y), b = height(x + 1, y), c = height(x, y + 1),
                         d = height(x + 1, y + 1);
            plain += 0.5 * cell *
                     (std::sqrt(cell * cell + (b - a) * (b - a) + (d - b) * (d - b)) +
                      std::sqrt(cell * cell + (d - c) * (d - c) + (c - a) * (c - a)));
        }
    const auto place = [&](unsigned x, unsigned y) {
        return at(raster.minX() + x * cell, raster.minY() + y * cell);
    };
    const std::vector<Point> square = {place(first, first), place(last, first), place(last, last),
                                       place(first, last)};
    const auto heightAt = [&](double x, double y) {
        return landscape.terrain()->calculateHeight({x, 0.0, y}, true);
    };
    EXPECT_NEAR(groundArea(square, cell / 4.0, heightAt) / plain, 1.0, 1e-3);
    EXPECT_GT(plain, 1.002 * planArea(square)) << "ground that could not tell";

    // Along a column, where heights of samples are those of the raster.
    double length = 0.0;
    for (unsigned y = first; y < last; ++y)
        length += std::hypot(cell, height(first, y + 1) - height(first, y));
    const GroundProfile profile = profileAlong({square[0], square[3]}, cell / 8.0, heightAt);
    EXPECT_NEAR(profile.groundLength / length, 1.0, 1e-3);
    EXPECT_NEAR(profile.samples.back().height, height(first, last), 1e-3);
}

} // namespace
