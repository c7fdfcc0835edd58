#include <zmt/raster/layeredimagepyramid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>
#include <zmt/raster/tiledgeoimage.h>

#include <support/recordedreports.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;
using Pyramid = SO<TiledGeoImagePyramid>;
using Pixel = std::array<int, 4>;

/// Colour of a pixel by its column and row.
using Colors = std::function<Pixel(int, int)>;

/// `width` by `height` pixels of a size, from a corner on.
Pyramid sheet(double x, double y, int width, int height, double size, const Colors & colors) {
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(width, height, NBX::LS_RGBA));
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column) {
            const Pixel color = colors(column, row);
            std::copy(color.begin(), color.end(), image->pixelComponentsU8(column, row));
        }
    return new MemoryTiledGeoImagePyramid(
        image.get(), NBX::Bounds({x, y, 0.0}, {x + width * size, y + height * size, 0.0}));
}

Pyramid plain(double x, double y, int width, int height, double size, const Pixel & color) {
    return sheet(x, y, width, height, size, [&](int, int) { return color; });
}

constexpr Pixel s_red = {200, 0, 0, 255}, s_green = {0, 200, 0, 255}, s_none = {0, 0, 0, 0};

Pixel at(const TiledGeoImagePyramid & pyramid, unsigned level, int x, int y) {
    const SO<NBX::Image> image = pyramid.overview(level)->getImage(x, y, 1, 1);
    if (!image) return {-1, -1, -1, -1};
    const unsigned char * pixel = image->pixelComponentsU8(0, 0);
    return {pixel[0], pixel[1], pixel[2], pixel[3]};
}

SO<LayeredImagePyramid> layered(const LayeredImagePyramid::Layers & layers) {
    return new LayeredImagePyramid(layers);
}

TEST(LayeredImagePyramid, CoversAllImagesWithThePixelsOfTheFinest) {
    const auto pyramid =
        layered({plain(10.5, 20.0, 4, 4, 2.0, s_red), plain(12.0, 18.0, 3, 2, 1.0, s_green)});
    // Whole pixels of the second image.
    EXPECT_EQ(10.0, pyramid->minX());
    EXPECT_EQ(19.0, pyramid->maxX());
    EXPECT_EQ(18.0, pyramid->minY());
    EXPECT_EQ(28.0, pyramid->maxY());
    std::string sizes;
    for (unsigned i = 0; i < pyramid->overviews(); ++i) {
        const SO<TiledGeoImage> level = pyramid->overview(i);
        EXPECT_EQ(4U, level->bands());
        EXPECT_NEAR(19.0, level->maxX(), 1e-9);
        EXPECT_NEAR(28.0, level->maxY(), 1e-9);
        sizes += std::to_string(level->pixelsX()) + "x" + std::to_string(level->pixelsY()) + " ";
    }
    EXPECT_EQ("9x10 5x5 3x3 2x2 1x1 ", sizes);
}

TEST(LayeredImagePyramid, LaterImagesLieAbove) {
    const auto low = plain(0.0, 0.0, 8, 8, 1.0, s_red), high = plain(2.0, 3.0, 4, 2, 1.0, s_green);
    const auto pyramid = layered({low, high});
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(x >= 2 && x < 6 && y >= 3 && y < 5 ? s_green : s_red, at(*pyramid, 0, x, y)) << x << y;
    EXPECT_EQ(s_red, at(*layered({high, low}), 0, 3, 3));
}

TEST(LayeredImagePyramid, GroundWithoutImageIsTransparent) {
    const auto pyramid = layered({plain(0.0, 0.0, 2, 2, 1.0, s_red), plain(6.0, 6.0, 2, 2, 1.0, s_green)});
    const SO<NBX::Image> all = pyramid->overview(0)->getImage(0, 0, 8, 8);
    ASSERT_TRUE(all);
    EXPECT_EQ(0, all->pixelComponentsU8(4, 4)[3]);
    EXPECT_EQ(255, all->pixelComponentsU8(7, 7)[3]);
    EXPECT_FALSE(pyramid->overview(0)->getImage(3, 3, 2, 2));
    EXPECT_FALSE(pyramid->overview(0)->failed());
}

TEST(LayeredImagePyramid, TransparencyShowsWhatLiesBelow) {
    const Pixel half = {0, 100, 200, 128};
    const auto above = [&](const Pyramid & below, const Pixel & color) {
        return at(*layered({below, plain(0.0, 0.0, 2, 2, 1.0, color)}), 0, 1, 1);
    };
    const Pyramid red = plain(0.0, 0.0, 2, 2, 1.0, s_red);
    EXPECT_EQ(s_red, above(red, {9, 9, 9, 0}));
    EXPECT_EQ((Pixel{100, 50, 100, 255}), above(red, half));
    EXPECT_EQ(half, above(plain(0.0, 0.0, 2, 2, 1.0, s_none), half));
    // Both let about a half through: a quarter, and the upper colour has about two shares of three.
    EXPECT_EQ((Pixel{66, 67, 134, 192}), above(plain(0.0, 0.0, 2, 2, 1.0, {200, 0, 0, 128}), half));
}

TEST(LayeredImagePyramid, SheetsSideBySideAreTheWholeImageAtAllLevels) {
    std::mt19937 random(7);
    std::vector<Pixel> colors(std::size_t(64) * 64);
    for (Pixel & color : colors)
        color = {int(random() % 256), int(random() % 256), int(random() % 256), 255};
    const auto cut = [&](int x, int y) {
        return sheet(1000.0 + x, 2000.0 + y, 32, 32, 1.0,
                     [&](int column, int row) { return colors[std::size_t(y + row) * 64 + x + column]; });
    };
    const auto pyramid = layered({cut(0, 0), cut(32, 0), cut(0, 32), cut(32, 32)});
    const auto whole = sheet(1000.0, 2000.0, 64, 64, 1.0,
                             [&](int column, int row) { return colors[std::size_t(row) * 64 + column]; });
    ASSERT_EQ(whole->overviews(), pyramid->overviews());
    for (unsigned level = 0; level < 6; ++level) {
        const unsigned side = 64U >> level;
        const SO<NBX::Image> expected = whole->overview(level)->getImage(0, 0, side, side);
        const SO<NBX::Image> actual = pyramid->overview(level)->getImage(0, 0, side, side);
        for (unsigned y = 0; y < side; ++y)
            EXPECT_TRUE(std::equal(expected->lineComponentsU8(int(y)),
                                   expected->lineComponentsU8(int(y)) + 4 * std::size_t(side),
                                   actual->lineComponentsU8(int(y))))
                << level << ' ' << y;
    }
}

TEST(LayeredImagePyramid, CoarserImagesAreInterpolatedFromAnyRectangle) {
    const auto ramp = [](int column, int row) { return Pixel{20 * column, 10 * row, 0, 255}; };
    const auto pyramid = layered({sheet(0.0, 0.0, 8, 8, 4.0, ramp), plain(0.0, 0.0, 1, 1, 1.0, s_none)});
    const SO<NBX::Image> all = pyramid->overview(0)->getImage(0, 0, 32, 32);
    ASSERT_TRUE(all);
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x) {
            const auto expected = [](int pixel, double rise) {
                return rise * std::clamp((pixel + 0.5) / 4.0 - 0.5, 0.0, 7.0);
            };
            EXPECT_NEAR(expected(x, 20.0), all->pixelComponentsU8(x, y)[0], 0.51) << x << ' ' << y;
            EXPECT_NEAR(expected(y, 10.0), all->pixelComponentsU8(x, y)[1], 0.51) << x << ' ' << y;
            EXPECT_EQ(255, all->pixelComponentsU8(x, y)[3]);
        }
    const SO<NBX::Image> part = pyramid->overview(0)->getImage(9, 14, 5, 3);
    for (int y = 0; y < 3; ++y)
        EXPECT_TRUE(std::equal(part->lineComponentsU8(y), part->lineComponentsU8(y) + 20,
                               all->pixelComponentsU8(9, 14 + y)));
}

TEST(LayeredImagePyramid, TransparentPixelsDoNotColourTheirNeighbours) {
    const auto colors = [](int column, int) { return column == 0 ? Pixel{0, 0, 0, 0} : s_green; };
    const auto pyramid = layered({sheet(0.0, 0.0, 2, 2, 4.0, colors), plain(0.0, 0.0, 1, 1, 1.0, s_none)});
    for (int x = 2; x < 8; ++x)
        EXPECT_EQ(200, at(*pyramid, 0, x, 4)[1]) << x;
    EXPECT_NEAR(255.0 * 0.375, at(*pyramid, 0, 3, 4)[3], 0.51);
}

TEST(LayeredImagePyramid, FinerImagesAreAveraged) {
    // The second one is finest, so that it makes the pixels; the coarse levels average both.
    const auto stripes = [](int column, int) {
        return column % 2 ? Pixel{100, 0, 0, 255} : Pixel{200, 0, 0, 255};
    };
    const auto pyramid = layered({sheet(0.0, 0.0, 16, 16, 1.0, stripes)});
    EXPECT_EQ((Pixel{200, 0, 0, 255}), at(*pyramid, 0, 2, 2));
    EXPECT_EQ((Pixel{150, 0, 0, 255}), at(*pyramid, 1, 2, 2));
    // Images of one line or column have levels that are coarser one way.
    for (const bool isLine : {true, false}) {
        const auto strip = layered({sheet(0.0, 0.0, isLine ? 8 : 1, isLine ? 1 : 8, 1.0,
                                          [&](int column, int row) { return stripes(column + row, 0); })});
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(stripes(i, 0), at(*strip, 0, isLine ? i : 0, isLine ? 0 : i)) << isLine << i;
    }
    // On another lattice a pixel shows those that cover its centre.
    const auto shifted = layered({plain(0.0, 0.0, 4, 4, 1.0, s_red), plain(1.4, 0.0, 4, 4, 1.0, s_green)});
    EXPECT_EQ(s_red, at(*shifted, 0, 0, 0));
    EXPECT_EQ(s_green, at(*shifted, 0, 1, 0));
    const auto farther = layered({plain(0.0, 0.0, 4, 4, 1.0, s_red), plain(1.6, 0.0, 4, 4, 1.0, s_green)});
    EXPECT_EQ(s_red, at(*farther, 0, 1, 0));
    EXPECT_EQ(s_green, at(*farther, 0, 2, 0));
}

/// Without alpha, of one number.
Pyramid opaque(double x, double y, int width, int height, NBX::LayerSequence layers, int number) {
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(width, height, layers));
    for (int row = 0; row < height; ++row)
        std::fill_n(image->lineComponentsU8(row), width * image->numberOfLayers(), std::uint8_t(number));
    return new MemoryTiledGeoImagePyramid(image.get(),
                                          NBX::Bounds({x, y, 0.0}, {x + width, y + height, 0.0}));
}

TEST(LayeredImagePyramid, SheetsThatLeaveNothingFreeNeedNoAlpha) {
    const auto formatOf = [](const LayeredImagePyramid::Layers & layers) {
        const SO<LayeredImagePyramid> pyramid = layered(layers);
        const SO<TiledGeoImage> level = pyramid->overview(0);
        const NBX::LayerSequence format = level->createEmptyImage(1, 1)->layerSequence();
        EXPECT_EQ(unsigned(NBX::Image::numberOfLayers(format)), level->bands());
        EXPECT_EQ(format, level->getImage(0, 0, 2, 2)->layerSequence());
        return format;
    };
    const auto grey = [](double x, double y, int width, int height) {
        return opaque(x, y, width, height, NBX::LS_Luminance, 50);
    };
    EXPECT_EQ(NBX::LS_Luminance, formatOf({grey(0, 0, 4, 4), grey(4, 0, 4, 4), grey(0, 4, 8, 4)}));
    EXPECT_EQ(NBX::LS_RGB, formatOf({grey(0, 0, 4, 4), opaque(4, 0, 4, 4, NBX::LS_RGB, 9)}));
    EXPECT_EQ(NBX::LS_RGBA, formatOf({grey(0, 0, 4, 4), grey(4, 0, 4, 4), grey(0, 4, 7, 4)}));
    EXPECT_EQ(NBX::LS_RGBA, formatOf({grey(0, 0, 4, 4), grey(4.01, 0, 4, 4)}));
    EXPECT_EQ(NBX::LS_RGBA, formatOf({grey(0, 0, 4, 4), grey(0, 4.01, 4, 4)}));
    EXPECT_EQ(NBX::LS_RGBA, formatOf({grey(0, 0, 4, 4), plain(0, 0, 4, 4, 1.0, s_red)}));
    // Roundings are no gaps.
    EXPECT_EQ(NBX::LS_Luminance, formatOf({grey(0, 0, 4, 4), grey(4.0 + 1e-9, 0, 4, 4)}));

    const auto pair = layered({grey(0, 0, 4, 4), opaque(4, 0, 4, 4, NBX::LS_Luminance, 90)});
    EXPECT_EQ(50, *pair->overview(0)->getImage(3, 1, 1, 1)->pixelComponentsU8(0, 0));
    EXPECT_EQ(90, *pair->overview(1)->getImage(2, 1, 1, 1)->pixelComponentsU8(0, 0));
}

/// Its only level cannot be read.
class BrokenImage : public TiledGeoImage {
    NBX_TEMPLATE_CLASS(BrokenImage, TiledGeoImage)
public:
    unsigned bands() const override { return 4; }
    double minX() const override { return 0.0; }
    double minY() const override { return 0.0; }
    double pixelSizeX() const override { return 1.0; }
    double pixelSizeY() const override { return 1.0; }
    std::uint64_t pixelsX() const override { return 2; }
    std::uint64_t pixelsY() const override { return 2; }
    bool failed() const override { return true; }
    SO<NBX::Image> getImage(int, int, unsigned, unsigned) const override { return nullptr; }
};

class BrokenPyramid : public TiledGeoImagePyramid {
    NBX_TEMPLATE_CLASS(BrokenPyramid, TiledGeoImagePyramid)
public:
    double minX() const override { return 0.0; }
    double minY() const override { return 0.0; }
    double maxX() const override { return 2.0; }
    double maxY() const override { return 2.0; }
    unsigned overviews() const override { return 1; }
    SO<TiledGeoImage> overview(unsigned) const override { return new BrokenImage; }
};

TEST(LayeredImagePyramid, AnImageThatCannotBeReadIsNotLeftOut) {
    const auto pyramid = layered({plain(0.0, 0.0, 2, 2, 1.0, s_red), Pyramid(new BrokenPyramid)});
    EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 2, 2));
    EXPECT_TRUE(pyramid->overview(0)->failed());
}

TEST(LayeredImagePyramid, WhatIsNoImageIsLeftOut) {
    RecordedReports reports;
    EXPECT_EQ(0U, layered({})->overviews());
    EXPECT_EQ(0.0, layered({})->maxX());
    EXPECT_EQ(0U, reports.size());
    EXPECT_EQ(2U, layered({nullptr, plain(0.0, 0.0, 2, 2, 1.0, s_red)})->overviews());
    EXPECT_EQ(1U, reports.size());
    EXPECT_FALSE(layered({})->overview(0));
    EXPECT_EQ(2U, reports.size());
    // Too many pixels between them.
    const auto apart = layered({plain(0.0, 0.0, 2, 2, 1.0, s_red), plain(3e9, 0.0, 2, 2, 1.0, s_red)});
    EXPECT_EQ(0U, apart->overviews());
    const auto near = layered({plain(0.0, 0.0, 2, 2, 1.0, s_red), plain(2e9, 0.0, 2, 2, 1.0, s_red)});
    EXPECT_EQ(32U, near->overviews());
}

} // namespace
