#include <zmt/raster/relief/shadeproduct.h>

#include <cmath>

#include <gtest/gtest.h>

#include "raster/gdal/geotiff.h"
#include "raster/relief/gdalrelief.h"

namespace {

using ZMT::RASTER::ShadeProduct;

/// None differs by more than 1, and hardly any does.
void expectSameShade(const std::vector<float> & expected, const std::vector<float> & found) {
    ASSERT_EQ(expected.size(), found.size());
    std::size_t different = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_LE(std::abs(expected[i] - found[i]), 1.0F) << i;
        different += expected[i] != found[i];
    }
    EXPECT_LE(double(different), 2e-4 * double(expected.size()));
}

TEST(ShadeProduct, IsGdalsHillshade) {
    expectSameShade(gdalRelief(s_everest, "hillshade"), ourRelief(s_everest, ShadeProduct(), 0.0F));
    expectSameShade(gdalRelief(s_everest, "hillshade", {"-az", "80", "-alt", "20", "-z", "3"}),
                    ourRelief(s_everest, ShadeProduct(80.0, 20.0, 3.0), 0.0F));
}

TEST(ShadeProduct, IsGdalsHillshadeOfOblongCells) {
    const TestDirectory folder;
    TiffContent content{50, 40};
    for (int i = 0; i < 50 * 40; ++i)
        content.values.push_back(100.0 + 60.0 * std::sin(0.2 * (i % 50)) +
                                 40.0 * std::cos(0.31 * double(i / 50)));
    const std::string path = writeTiff(folder.file("heights.tif"), content);
    expectSameShade(gdalRelief(path, "hillshade", {"-az", "100"}),
                    ourRelief(path, ShadeProduct(100.0), 0.0F));
}

/// The light falls straight onto a slope that leans towards it, and not onto one that leans away.
TEST(ShadeProduct, LightComesFromWhereItIsSaid) {
    struct Case {
        double azimuth, east, north;
    };
    for (const Case & at : {Case{0.0, 0.0, 1.0}, {90.0, 1.0, 0.0}, {180.0, 0.0, -1.0}, {270.0, -1.0, 0.0}}) {
        const auto shadeOf = [&](double away) {
            float cells[3][3], values[3];
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < 3; ++x)
                    cells[y][x] = float(away * (x * at.east + y * at.north));
            const float * const rows[] = {cells[0], cells[1], cells[2]};
            ShadeProduct(at.azimuth, 45.0).computeRow(rows, 3, 1.0, 1.0, values);
            return values[1];
        };
        EXPECT_EQ(255.0F, shadeOf(-1.0)) << at.azimuth << ", falls towards the light";
        EXPECT_EQ(1.0F, shadeOf(1.0)) << at.azimuth << ", falls away from it";
        EXPECT_EQ(181.0F, shadeOf(0.0)) << at.azimuth << ", level";
    }
}

} // namespace
