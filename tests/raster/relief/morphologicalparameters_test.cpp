#include <zmt/raster/relief/morphologicalparameters.h>

#include <cmath>

#include <gtest/gtest.h>

#include <nbx/object/progress.h>

#include "support/cancelingdisplay.h"
#include "support/recordedreports.h"

namespace {

using ZMT::RASTER::MorphologicalParameters;
using Raster = ZMT::RASTER::SimpleRasterData<float>;

constexpr float s_noData = -1.0F;

template <class Height> NBX::SO<Raster> raster(unsigned width, unsigned height, const Height & heightAt) {
    NBX::SO<Raster> result(new Raster(width, height, 1000.0, 2000.0, 10.0, 20.0, true, s_noData));
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            result->setValue(x, y, float(heightAt(x, y)));
    return result;
}

NBX::SO<MorphologicalParameters> parametersOf(const Raster & heights, float scaling = 1.0F,
                                              unsigned window = 3, float tolerance = 0.0F) {
    return new MorphologicalParameters(&heights, scaling, window, tolerance);
}

/// Rises by 1 in 10 to the east and by 1 in 5 to the south.
double ramp(unsigned x, unsigned y) {
    return 100.0 + x - 4.0 * y;
}

TEST(MorphologicalParameters, AreRastersOfTheSameGrid) {
    const auto heights = raster(6, 5, ramp);
    const auto found = parametersOf(*heights);
    for (const auto & result :
         {found->coefficientX(), found->coefficientY(), found->slope(), found->crossSectionCurvature()}) {
        EXPECT_EQ(heights->cellsX(), result->cellsX());
        EXPECT_EQ(heights->cellsY(), result->cellsY());
        EXPECT_EQ(heights->minX(), result->minX());
        EXPECT_EQ(heights->maxY(), result->maxY());
    }
    EXPECT_FLOAT_EQ(0.1F, float(found->coefficientX()->value(2U, 2U)));
    EXPECT_FLOAT_EQ(-0.2F, float(found->coefficientY()->value(2U, 2U)));
    EXPECT_FLOAT_EQ(float(std::atan(std::sqrt(0.05)) * 180.0 / M_PI), float(found->slope()->value(4U, 3U)));
    EXPECT_NEAR(0.0, found->crossSectionCurvature()->value(2U, 2U), 1e-6);
}

TEST(MorphologicalParameters, ScalingIsAFactorOfTheHeights) {
    const auto heights = raster(6, 5, ramp);
    EXPECT_FLOAT_EQ(-0.6F, float(parametersOf(*heights, 3.0F)->coefficientY()->value(2U, 2U)));
}

TEST(MorphologicalParameters, AreNothingAtTheBorderAndAroundHoles) {
    const auto heights =
        raster(7, 5, [](unsigned x, unsigned y) { return x == 4 && y == 1 ? s_noData : ramp(x, y); });
    const auto found = parametersOf(*heights);
    std::string known;
    for (unsigned y = 5; y-- > 0;) {
        for (unsigned x = 0; x < 7; ++x)
            known += found->slope()->isUndefValue(found->slope()->value(x, y)) ? '.' : 'x';
        known += '\n';
    }
    EXPECT_EQ(".......\n"
              ".xxxxx.\n"
              ".xx....\n"
              ".xx....\n"
              ".......\n",
              known);
}

TEST(MorphologicalParameters, EvenWindowsBecomeOdd) {
    const RecordedReports reports;
    const auto heights = raster(9, 9, [](unsigned x, unsigned y) { return x * x * 0.3 + y * x * 0.1; });
    const auto found = parametersOf(*heights, 1.0F, 4), odd = parametersOf(*heights, 1.0F, 5);
    EXPECT_EQ(odd->coefficientX()->value(3U, 3U), found->coefficientX()->value(3U, 3U));
    EXPECT_TRUE(std::isnan(found->coefficientX()->value(1U, 4U))) << "two cells at the border";
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(MorphologicalParameters, GroundWithinTheToleranceIsLevel) {
    // A gully that falls by one degree.
    const auto heights = raster(9, 9, [](unsigned x, unsigned y) {
        return 500.0 + 20.0 * y * std::tan(M_PI / 180.0) + 0.4 * (x - 4.0) * (x - 4.0);
    });
    const auto strict = parametersOf(*heights, 1.0F, 3, 0.99F),
               level = parametersOf(*heights, 1.0F, 3, 1.01F);
    EXPECT_NEAR(1.0, strict->slope()->value(4U, 4U), 1e-4);
    EXPECT_NEAR(-0.008, strict->crossSectionCurvature()->value(4U, 4U), 1e-6);
    EXPECT_EQ(0.0, level->slope()->value(4U, 4U));
    EXPECT_EQ(0.0, level->crossSectionCurvature()->value(4U, 4U));
    EXPECT_EQ(strict->coefficientY()->value(4U, 4U), level->coefficientY()->value(4U, 4U));
}

TEST(MorphologicalParameters, TheToleranceItselfIsLevel) {
    const auto heights = raster(3, 3, [](unsigned x, unsigned) { return 10.0 * x; });
    EXPECT_EQ(45.0, parametersOf(*heights)->slope()->value(1U, 1U));
    EXPECT_EQ(0.0, parametersOf(*heights, 1.0F, 3, 45.0F)->slope()->value(1U, 1U));
}

TEST(MorphologicalParameters, ARasterSmallerThanTheWindowHasNone) {
    const auto found = parametersOf(*raster(4, 4, ramp), 1.0F, 5);
    for (unsigned i = 0; i < 16; ++i)
        EXPECT_TRUE(std::isnan(found->slope()->value(i % 4, i / 4)));
}

TEST(MorphologicalParameters, OfNothingAreReported) {
    const RecordedReports reports;
    const NBX::SO<MorphologicalParameters> found(new MorphologicalParameters(nullptr, 1.0F, 3, 0.0F));
    EXPECT_EQ(1U, reports.count(0, L"raster", L"no raster data"));
    EXPECT_FALSE(found->slope());
}

TEST(MorphologicalParameters, CancelledAreNone) {
    const CancelingDisplay display;
    NBX::Progress progress("parameters");
    const auto heights = raster(6, 5, ramp);
    const NBX::SO<MorphologicalParameters> found(
        new MorphologicalParameters(heights.get(), 1.0F, 3, 0.0F, &progress));
    EXPECT_FALSE(found->coefficientX() || found->coefficientY() || found->slope() ||
                 found->crossSectionCurvature());
}

} // namespace
