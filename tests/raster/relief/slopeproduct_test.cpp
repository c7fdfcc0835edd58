#include <zmt/raster/relief/slopeproduct.h>

#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "raster/gdal/geotiff.h"
#include "raster/relief/gdalrelief.h"

namespace {

using ZMT::RASTER::SlopeProduct;

/// Metres, with a hole, and more rows than are read at once.
/// The share of numbers that differ, none by more than a rounding of a float.
double shareOfRoundings(const std::vector<float> & expected, const std::vector<float> & found) {
    EXPECT_EQ(expected.size(), found.size());
    std::size_t different = 0;
    for (std::size_t i = 0; i < std::min(expected.size(), found.size()); ++i) {
        if (expected[i] == found[i]) continue;
        EXPECT_FLOAT_EQ(expected[i], found[i]) << i;
        ++different;
    }
    return double(different) / double(expected.size());
}

TEST(SlopeProduct, IsGdalsSlope) {
    const auto expected = gdalRelief(s_everest, "slope");
    EXPECT_LT(shareOfRoundings(expected, ourRelief(s_everest, SlopeProduct(), -9999.0F)), 1e-6);
    EXPECT_LT(std::count(expected.begin(), expected.end(), -9999.0F), std::ptrdiff_t(expected.size()));
}

TEST(SlopeProduct, IsGdalsSlopeInPercentAndExaggerated) {
    EXPECT_LT(shareOfRoundings(gdalRelief(s_everest, "slope", {"-p", "-s", "0.25"}),
                               ourRelief(s_everest, SlopeProduct(SlopeProduct::U_Percent, 4.0), -9999.0F)),
              1e-6);
}

/// Whole numbers, a hole and oblong cells.
TEST(SlopeProduct, IsGdalsSlopeOfWholeNumbers) {
    const TestDirectory folder;
    TiffContent content{60, 300};
    content.type = GDT_Int16;
    content.hasNoData = true;
    content.noData = -32768.0;
    std::mt19937 random(5);
    for (int i = 0; i < 60 * 300; ++i)
        content.values.push_back(i % 997 == 0 ? -32768.0 : double(random() % 3000));
    const std::string path = writeTiff(folder.file("heights.tif"), content);
    EXPECT_LT(shareOfRoundings(gdalRelief(path, "slope"), ourRelief(path, SlopeProduct(), -9999.0F)), 1e-4);
}

/// Of every size, against the library's own arc tangent.
TEST(SlopeProduct, AnglesAreExact) {
    std::mt19937 random(6);
    std::uniform_real_distribution<double> exponents(-8.0, 8.0);
    for (int i = 0; i < 3000; ++i) {
        const double tangent = std::pow(10.0, exponents(random));
        const float east[] = {0.0F, 0.0F, 1.0F};
        const float * const rows[] = {east, east, east};
        float angles[3];
        // The ground rises by 1 in 2 cells.
        SlopeProduct().computeRow(rows, 3, 0.5 / tangent, 1.0, angles);
        EXPECT_FLOAT_EQ(float(std::atan(tangent) * 180.0 / M_PI), angles[1]) << tangent;
    }
}

TEST(SlopeProduct, LargerWindowsSmooth) {
    std::vector<float> rows[5];
    for (unsigned j = 0; j < 5; ++j)
        for (unsigned i = 0; i < 7; ++i)
            rows[j].push_back(float(2 * i) + (i == 3 && j == 2 ? 1.0F : 0.0F));
    const float * const pointers[] = {rows[0].data(), rows[1].data(), rows[2].data(), rows[3].data(),
                                      rows[4].data()};
    float values[7];
    SlopeProduct(SlopeProduct::U_Percent, 1.0, 5).computeRow(pointers, 7, 1.0, 1.0, values);
    EXPECT_FLOAT_EQ(200.0F, values[3]);
    EXPECT_NEAR(200.0, values[2], 10.0) << "less than the 25 percent of 3 by 3 cells";
    EXPECT_GT(values[2], 200.0F);
    EXPECT_TRUE(std::isnan(values[1]) && std::isnan(values[5]));
}

} // namespace
