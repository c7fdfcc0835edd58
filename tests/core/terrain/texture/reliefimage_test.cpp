#include <zmt/core/terrain/texture/reliefimage.h>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>

#include <support/recordedreports.h>

#include "support/smallhybrid.h"
#include "support/testterrain.h"

using ZMT::CORE::ReliefImage;
using Point = NBX::Vector3Base<double>;
using Texel = std::array<int, 3>;

namespace {

Texel texel(const NBX::Image & image, int x, int y) {
    const unsigned char * p = image.lineComponentsU8(y) + 3 * x;
    return {p[0], p[1], p[2]};
}

/// Ten heights from 0 to 90, in the rows as well as in the columns.
NBX::SO<ZMT::CORE::GridData> ramp() {
    return TestTerrain::grid({10, 3}, [](unsigned x, unsigned) { return 10.0 * x; });
}

TEST(ReliefImage, HasOneTexelAVertex) {
    const auto image = ReliefImage::createHeightColors(*ramp());
    EXPECT_EQ(image->width(), 10);
    EXPECT_EQ(image->height(), 3);
    EXPECT_EQ(image->layerSequence(), NBX::LS_RGB);
    const auto shading = ReliefImage::createShading(*ramp(), {0, 1, 0}, 0.5);
    EXPECT_EQ(shading->width(), 10);
    EXPECT_EQ(shading->height(), 3);
    EXPECT_EQ(shading->layerSequence(), NBX::LS_Luminance);
}

TEST(ReliefImage, GoesFromGreenLowlandsToWhiteSummits) {
    const auto image = ReliefImage::createHeightColors(*ramp());
    const Texel low = texel(*image, 0, 0), high = texel(*image, 9, 0);
    EXPECT_GT(low[1], low[0]);
    EXPECT_GT(low[1], low[2]);
    EXPECT_EQ(high, (Texel{250, 250, 250}));
    for (int x = 1; x < 10; ++x)
        EXPECT_NE(texel(*image, x, 1), texel(*image, x - 1, 1)) << x;
}

/// Its own height, whatever the others are: rows begin with the least z.
TEST(ReliefImage, LineZeroIsTheRowOfTheLeastZ) {
    const auto grid = TestTerrain::grid({2, 3}, [](unsigned, unsigned y) { return double(y); });
    const auto image = ReliefImage::createHeightColors(*grid);
    EXPECT_EQ(texel(*image, 0, 0), texel(*ReliefImage::createHeightColors(*ramp()), 0, 0));
    EXPECT_EQ(texel(*image, 0, 2), (Texel{250, 250, 250}));
}

TEST(ReliefImage, UndefinedHeightsAreGrey) {
    const auto grid = TestTerrain::grid({3, 2}, [](unsigned x, unsigned y) {
        return x == 1 && y == 1 ? TestTerrain::s_undefined : 10.0 * x;
    });
    const auto image = ReliefImage::createHeightColors(*grid);
    const Texel grey = texel(*image, 1, 1);
    EXPECT_EQ(grey[0], grey[1]);
    EXPECT_EQ(grey[1], grey[2]);
    EXPECT_NE(texel(*image, 1, 0), grey);
    EXPECT_EQ(texel(*image, 2, 0), (Texel{250, 250, 250})) << "the range is that of the defined heights";

    const auto nothing =
        TestTerrain::grid({2, 2}, [](unsigned, unsigned) { return TestTerrain::s_undefined; });
    EXPECT_EQ(texel(*ReliefImage::createHeightColors(*nothing), 0, 0), grey);
}

TEST(ReliefImage, SeaIsBlueBelowZero) {
    const auto coast =
        TestTerrain::grid({9, 2}, [](unsigned x, unsigned) { return x == 5 ? -0.01 : 100.0 * (int(x) - 4); });
    const auto image = ReliefImage::createHeightColors(*coast);
    const auto isBlue = [&](int x) {
        const Texel t = texel(*image, x, 0);
        return t[2] > t[1] && t[1] > t[0];
    };
    const auto brightness = [&](int x) {
        const Texel t = texel(*image, x, 0);
        return t[0] + t[1] + t[2];
    };
    for (const int x : {0, 1, 2, 3, 5})
        EXPECT_TRUE(isBlue(x)) << x;
    for (int x = 1; x < 4; ++x)
        EXPECT_GT(brightness(x), brightness(x - 1)) << "deep water is dark, " << x;
    EXPECT_GT(brightness(5), brightness(3));
    EXPECT_EQ(texel(*image, 4, 0), texel(*ReliefImage::createHeightColors(*ramp()), 0, 0)) << "at 0";
    EXPECT_EQ(texel(*image, 8, 0), (Texel{250, 250, 250}));
}

/// What is below beside mountains is shallow; a basin without a coast is no sea.
TEST(ReliefImage, LowGroundIsNoDeepSea) {
    const auto at = [](double low, double high) {
        const auto grid = TestTerrain::grid({2, 2}, [=](unsigned x, unsigned) { return x ? high : low; });
        return texel(*ReliefImage::createHeightColors(*grid), 0, 0);
    };
    EXPECT_EQ(at(-0.5, 4000.0), (Texel{176, 212, 230}));
    EXPECT_EQ(at(-430.0, -10.0), at(10.0, 430.0));
    EXPECT_EQ(at(-430.0, 0.0), at(10.0, 430.0));
}

/// A pyramid of four triangles in one cell: each texel has the colour of the height in its middle.
TEST(ReliefImage, ShapesOfCellsHaveTheirOwnHeights) {
    const auto flat = [](unsigned, unsigned) { return 0.0; };
    const auto grid = SmallHybrid::hybrid({4, 3, 100.0, 200.0, 10.0, 20.0}, flat, {{1, 0, 80.0}});
    const auto image = ReliefImage::createHeightColors(*grid);
    ASSERT_EQ(image->width(), 16);
    ASSERT_EQ(image->height(), 12);
    const auto heights = TestTerrain::grid({81, 2}, [](unsigned x, unsigned) { return double(x); });
    const auto colours = ReliefImage::createHeightColors(*heights);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 16; ++x) {
            const double right = (x + 0.5) / 4 - 0.5 - 1.5, up = (y + 0.5) / 4 - 0.5 - 0.5;
            const double height = 80.0 * std::max(0.0, 1.0 - 2.0 * std::max(std::abs(right), std::abs(up)));
            EXPECT_EQ(texel(*image, x, y), texel(*colours, int(height), 0)) << x << ", " << y;
        }
    EXPECT_EQ(ReliefImage::createHeightColors(*grid, 9)->width(), 9);
    EXPECT_EQ(ReliefImage::createHeightColors(*grid, 9)->height(), 9);
}

/// Beside cells with shapes the ground has its own colours, also where it is undefined.
TEST(ReliefImage, PlainCellsBesideShapesAreInterpolated) {
    const auto slope = [](unsigned x, unsigned y) {
        return x == 5 && y == 2 ? TestTerrain::s_undefined : 40.0 * x + 20.0 * y;
    };
    const auto image = ReliefImage::createHeightColors(
        *SmallHybrid::hybrid({6, 3, 0.0, 0.0, 1.0, 1.0}, slope, {{0, 0, 30.0}, {4, 1, 190.0}}));
    const auto heights = TestTerrain::grid({441, 2}, [](unsigned x, unsigned) { return 0.5 * x; });
    const auto colours = ReliefImage::createHeightColors(*heights);
    for (int x = 0; x < 24; ++x)
        for (int y = 0; y < 6; ++y) {
            const double column = std::clamp((x + 0.5) / 4 - 0.5, 0.0, 5.0);
            const double row = std::clamp((y + 0.5) / 4 - 0.5, 0.0, 2.0);
            EXPECT_EQ(texel(*image, x, y), texel(*colours, int(80.0 * column + 40.0 * row), 0))
                << x << ", " << y;
        }
    for (int x = 16; x < 24; ++x)
        for (int y = 8; y < 12; ++y)
            EXPECT_EQ(texel(*image, x, y) == (Texel{96, 96, 96}), x >= 20) << x << ", " << y;
}

TEST(ReliefImage, FlatGroundHasOneColor) {
    const auto grid = TestTerrain::grid({2, 2}, [](unsigned, unsigned) { return 7.0; });
    const auto image = ReliefImage::createHeightColors(*grid);
    EXPECT_EQ(texel(*image, 0, 0), texel(*image, 1, 1));
}

TEST(ReliefImage, LargeGridsAreSampledEvenly) {
    const auto full = ReliefImage::createHeightColors(*ramp());
    const auto small = ReliefImage::createHeightColors(*ramp(), 5);
    EXPECT_EQ(small->width(), 5);
    EXPECT_EQ(small->height(), 3);
    for (int x = 0; x < 5; ++x)
        EXPECT_EQ(texel(*small, x, 0), texel(*full, 2 * x + 1, 0)) << x;
    EXPECT_EQ(ReliefImage::createShading(*ramp(), {0, 1, 0}, 0.5, 4)->width(), 4);
}

/// Ground that rises to the east by 45 degrees, in the middle, where slopes count in full.
TEST(ReliefImage, ShadingFollowsTheCosine) {
    const auto grid = TestTerrain::grid({5, 5}, [](unsigned x, unsigned) { return double(x); });
    const struct {
        const char * name;
        NBX::Vector3Base<double> direction;
        double ambient;
        int expected;
    } cases[] = {{"from above", {0, 1, 0}, 0.0, 180},      {"of any length", {0, 100, 0}, 0.0, 180},
                 {"into the slope", {-1, 1, 0}, 0.0, 255}, {"along the slope", {1, 1, 0}, 0.0, 0},
                 {"from behind", {1, 0.1, 0}, 0.25, 64},   {"with ambient light", {0, 1, 0}, 0.4, 210}};
    for (const auto & c : cases) {
        const auto image = ReliefImage::createShading(*grid, c.direction, c.ambient);
        EXPECT_NEAR(image->lineComponentsU8(2)[2], c.expected, 1) << c.name;
    }
}

/// As if the raster had been multiplied.
TEST(ReliefImage, ShadingAndNormalsAreThoseOfTheExaggeratedSurface) {
    const auto hills = [](double factor) {
        return TestTerrain::grid({12, 9}, [factor](unsigned x, unsigned y) {
            return factor * (std::sin(x * 0.7) + std::cos(y * 0.9));
        });
    };
    for (const double factor : {0.2, 1.0, 5.0}) {
        const NBX::Vector3Base<double> sun(-1.0, 1.2, 1.0);
        const auto shading = ReliefImage::createShading(*hills(1.0), sun, 0.2, 100, factor);
        const auto normals = ReliefImage::createNormals(*hills(1.0), 100, factor);
        const auto expectedShading = ReliefImage::createShading(*hills(factor), sun, 0.2);
        const auto expectedNormals = ReliefImage::createNormals(*hills(factor));
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 12; ++x) {
                EXPECT_NEAR(shading->lineComponentsU8(y)[x], expectedShading->lineComponentsU8(y)[x], 1);
                for (unsigned c = 0; c < 3; ++c)
                    EXPECT_NEAR(texel(*normals, x, y)[c], texel(*expectedNormals, x, y)[c], 1);
            }
    }
}

TEST(ReliefImage, NormalsAreColours) {
    const auto grid = TestTerrain::grid({5, 5}, [](unsigned x, unsigned) { return double(x); });
    const auto image = ReliefImage::createNormals(*grid);
    EXPECT_EQ(image->layerSequence(), NBX::LS_RGB);
    EXPECT_EQ(texel(*image, 2, 2), (Texel{37, 218, 128}))
        << "half of 1 - 1/sqrt 2, of 1 + 1/sqrt 2, and of 1";
    const auto flat = TestTerrain::grid({2, 2}, [](unsigned, unsigned) { return 3.0; });
    EXPECT_EQ(texel(*ReliefImage::createNormals(*flat), 0, 0), (Texel{128, 255, 128}));
    EXPECT_EQ(ReliefImage::createNormals(*ramp(), 4)->width(), 4);
}

TEST(ReliefImage, LightFollowsFromNormalsAsFromHeights) {
    const auto grid = TestTerrain::grid({9, 7, 0.0, 0.0, 2.0, 3.0}, TestTerrain::bumpy);
    const Point direction(2.0, 3.0, -1.0);
    const auto expected = ReliefImage::createShading(*grid, direction, 0.25);
    const auto light = ReliefImage::createShading(*ReliefImage::createNormals(*grid), direction, 0.25);
    ASSERT_TRUE(light);
    EXPECT_EQ(light->layerSequence(), NBX::LS_Luminance);
    ASSERT_EQ(light->width(), 9);
    ASSERT_EQ(light->height(), 7);
    bool isAnyDark = false;
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) {
            // Normals have 8 bits.
            EXPECT_NEAR(light->lineComponentsU8(y)[x], expected->lineComponentsU8(y)[x], 2) << x << " " << y;
            isAnyDark = isAnyDark || light->lineComponentsU8(y)[x] == 64;
        }
    EXPECT_TRUE(isAnyDark) << "some slopes face away from the light";
}

TEST(ReliefImage, WhatAreNoNormalsIsReported) {
    const RecordedReports reports;
    const NBX::SO<NBX::Image> light(new NBX::MemoryImage(2, 2, NBX::LS_Luminance));
    EXPECT_FALSE(ReliefImage::createShading(*light, {0, 1, 0}, 0.5));
    EXPECT_EQ(reports.count(L"normals are three layers of 8 bits"), 1U) << reports;
}

TEST(ReliefImage, ColoursLieBetweenThoseOfATable) {
    const auto grid = TestTerrain::grid({9, 2}, [](unsigned x, unsigned) { return 10.0 * x; });
    const std::vector<ReliefImage::Tint> tints = {{20.0, {0.0F, 0.0F, 0.0F}},
                                                  {40.0, {1.0F, 0.5F, 0.0F}},
                                                  {40.0, {0.0F, 0.0F, 1.0F}},
                                                  {60.0, {0.0F, 1.0F, 1.0F}}};
    const auto image = ReliefImage::createHeightColors(*grid, tints);
    EXPECT_EQ(texel(*image, 0, 0), (Texel{0, 0, 0})) << "below all";
    EXPECT_EQ(texel(*image, 3, 1), (Texel{128, 64, 0}));
    EXPECT_EQ(texel(*image, 4, 0), (Texel{0, 0, 255})) << "the latter of two";
    EXPECT_EQ(texel(*image, 5, 0), (Texel{0, 128, 255}));
    EXPECT_EQ(texel(*image, 8, 0), (Texel{0, 255, 255})) << "above all";
    EXPECT_EQ(texel(*ReliefImage::createHeightColors(*grid, std::span(tints).first(1)), 8, 0),
              (Texel{0, 0, 0}));
}

TEST(ReliefImage, TheUsualColoursAreATable) {
    for (const double low : {-300.0, 0.0, 250.0}) {
        const auto grid =
            TestTerrain::grid({60, 2}, [low](unsigned x, unsigned) { return low + 11.0 * double(x); });
        const auto usual = ReliefImage::createHeightColors(*grid);
        const auto tints = ReliefImage::usualTints(low, low + 11.0 * 59.0);
        for (std::size_t i = 1; i < tints.size(); ++i)
            EXPECT_LE(tints[i - 1].height, tints[i].height) << low;
        const auto table = ReliefImage::createHeightColors(*grid, tints);
        for (int x = 0; x < 60; ++x)
            for (unsigned c = 0; c < 3; ++c)
                EXPECT_NEAR(texel(*usual, x, 0)[c], texel(*table, x, 0)[c], 1) << low << " " << x;
    }
}

} // namespace
