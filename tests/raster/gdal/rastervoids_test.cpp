#include <zmt/raster/gdal/rastervoids.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <support/cancelingdisplay.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/histogram.h>

namespace {

using namespace ZMT::RASTER;
using Raster = SimpleRasterData<float>;

constexpr float s_void = -9999.0F;

float slope(unsigned column, unsigned row) {
    return 100.0F + 2.0F * float(column) + 3.0F * float(row);
}

NBX::SO<Raster> makeSlope(unsigned width, unsigned height) {
    NBX::SO<Raster> raster(new Raster(width, height, 500.0, 700.0, 10.0, 20.0, true, s_void));
    for (unsigned row = 0; row < height; ++row)
        for (unsigned column = 0; column < width; ++column)
            raster->setValue(column, row, slope(column, row));
    return raster;
}

TEST(RasterVoids, AHoleInASlopeIsFilledWithTheSlope) {
    const NBX::SO<Raster> raster = makeSlope(40, 30);
    for (unsigned row = 10; row < 15; ++row)
        for (unsigned column = 20; column < 25; ++column)
            raster->setValue(column, row, s_void);
    const NBX::SO<Raster> filled = RasterVoids::fill(raster);
    ASSERT_TRUE(filled);
    EXPECT_NE(raster, filled);
    for (unsigned row = 0; row < 30; ++row)
        for (unsigned column = 0; column < 40; ++column) {
            const bool isHole = row >= 10 && row < 15 && column >= 20 && column < 25;
            EXPECT_NEAR(slope(column, row), filled->value(column, row), isHole ? 6.0 : 0.0);
        }
}

TEST(RasterVoids, PlaceAndSourceAreKept) {
    const NBX::SO<Raster> raster = makeSlope(8, 6);
    raster->setValue(3, 3, s_void);
    const NBX::SO<Raster> filled = RasterVoids::fill(raster);
    EXPECT_EQ(500.0, filled->minX());
    EXPECT_EQ(700.0, filled->minY());
    EXPECT_EQ(10.0, filled->cellSizeX());
    EXPECT_EQ(20.0, filled->cellSizeY());
    EXPECT_EQ(8U, filled->cellsX());
    EXPECT_EQ(6U, filled->cellsY());
    EXPECT_EQ(s_void, raster->value(3U, 3U));
}

TEST(RasterVoids, WhatHasNoVoidsOrNothingElseIsGivenBack) {
    const NBX::SO<Raster> whole = makeSlope(8, 6);
    EXPECT_EQ(whole, RasterVoids::fill(whole));
    const NBX::SO<Raster> nothing(new Raster(8, 6, 0.0, 0.0, 1.0, 1.0, true, s_void));
    EXPECT_EQ(nothing, RasterVoids::fill(nothing));
    const NBX::SO<Raster> empty(new Raster);
    EXPECT_EQ(empty, RasterVoids::fill(empty));
}

TEST(RasterVoids, WhatIsTooFarStaysUndefined) {
    const NBX::SO<Raster> raster(new Raster(300, 3, 0.0, 0.0, 1.0, 1.0, true, s_void));
    for (unsigned row = 0; row < 3; ++row)
        raster->setValue(0, row, 5.0F);
    const NBX::SO<Raster> filled = RasterVoids::fill(raster);
    EXPECT_NEAR(5.0, filled->value(190U, 1U), 1e-3);
    EXPECT_TRUE(std::isnan(filled->value(215U, 1U)));
    EXPECT_TRUE(filled->isUndefValue(filled->value(299U, 2U)));
}

TEST(RasterVoids, CancelledFillingGivesNull) {
    const NBX::SO<Raster> raster = makeSlope(40, 30);
    raster->setValue(3, 3, s_void);
    const CancelingDisplay display;
    NBX::Progress progress("filling", 5.0);
    EXPECT_FALSE(RasterVoids::fill(raster, &progress));
    EXPECT_EQ(s_void, raster->value(3U, 3U));
}

TEST(RasterVoids, RealVoidsLieBetweenTheHeightsAround) {
    const NBX::SO<Raster> raster = RasterFile(ZMT_DATA_DIR "/everest_srtm3.tif").read().raster;
    const NBX::SO<Raster> filled = RasterVoids::fill(raster);
    EXPECT_GT(Histogram(raster.get()).numberOfUndefinedValues(), 100000U);
    EXPECT_EQ(0U, Histogram(filled.get()).numberOfUndefinedValues());
    EXPECT_EQ(raster->minValue(), filled->minValue());
    EXPECT_EQ(raster->maxValue(), filled->maxValue());
}

} // namespace
