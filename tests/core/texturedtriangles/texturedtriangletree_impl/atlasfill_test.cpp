#include "core/texturedtriangles/texturedtriangletree_impl/atlasfill.h"

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>
#include <support/recordedreports.h>

namespace {

using NBX::Image;
using NBX::SO;
using ZMT::CORE::fillUnusedTexels;
using ZMT::CORE::UsedTexels;
using Pixel = std::array<int, 4>;

Pixel pixelOf(const Image & image, int x, int y) {
    Pixel pixel{};
    for (int layer = 0; layer < image.numberOfLayers(); ++layer)
        pixel[std::size_t(layer)] = image.pixelComponentsU8(x, y, layer)[0];
    return pixel;
}

void paint(Image & image, const NBX::Area & area, const Pixel & pixel) {
    for (int y = area.getY(); y < area.getY() + int(area.getHeight()); ++y)
        for (int x = area.getX(); x < area.getX() + int(area.getWidth()); ++x)
            for (int layer = 0; layer < image.numberOfLayers(); ++layer)
                image.pixelComponentsU8(x, y, layer)[0] =
                    static_cast<unsigned char>(pixel[std::size_t(layer)]);
}

SO<Image> blank(int width, int height, NBX::LayerSequence sequence = NBX::LS_RGBA) {
    return new NBX::MemoryImage(width, height, sequence);
}

/// Random texels, of 40 to 90, in some places. The others are 0.
struct Atlas {
    Atlas(int width, int height, NBX::LayerSequence sequence, unsigned seed)
        : used(width, height), image(blank(width, height, sequence)) {
        std::mt19937 random(seed);
        const auto below = [&](int end) { return int(random() % unsigned(end)); };
        for (int i = 0; i < 5; ++i) {
            const int x = below(width), y = below(height);
            const NBX::Area area(x, y, unsigned(1 + below(width - x)) / 2 + 1,
                                 unsigned(1 + below(height - y)) / 2 + 1);
            const NBX::Area inside(x, y, std::min(area.getWidth(), unsigned(width - x)),
                                   std::min(area.getHeight(), unsigned(height - y)));
            used.add(inside);
            for (int row = y; row < y + int(inside.getHeight()); ++row)
                for (int column = x; column < x + int(inside.getWidth()); ++column)
                    paint(*image, {column, row, 1, 1},
                          {40 + below(51), 40 + below(51), 40 + below(51), 40 + below(51)});
        }
    }
    bool isUsed(int x, int y) const { return used.bytes()[std::size_t(y * image->width() + x)] != 0; }

    UsedTexels used;
    SO<Image> image;
};

TEST(AtlasFill, UsedTexelsStayAndTheOthersLieBetweenThem) {
    unsigned seed = 0;
    for (const auto & [width, height] : {std::pair(1, 7), {7, 1}, {5, 3}, {32, 32}, {33, 17}, {64, 128}})
        for (const auto sequence : {NBX::LS_RGB, NBX::LS_RGBA}) {
            const Atlas atlas(width, height, sequence, ++seed);
            const SO<Image> before = blank(width, height, sequence);
            before->copy(atlas.image.get());
            fillUnusedTexels(atlas.used, *atlas.image);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) {
                    const Pixel now = pixelOf(*atlas.image, x, y);
                    if (atlas.isUsed(x, y)) {
                        EXPECT_EQ(pixelOf(*before, x, y), now) << seed << ": " << x << ' ' << y;
                        continue;
                    }
                    for (int layer = 0; layer < before->numberOfLayers(); ++layer) {
                        EXPECT_GE(now[std::size_t(layer)], 40) << seed << ": " << x << ' ' << y;
                        EXPECT_LE(now[std::size_t(layer)], 90) << seed << ": " << x << ' ' << y;
                    }
                }
        }
}

/// From the left to the right, and from below upwards.
class AtlasFillInAxis : public testing::TestWithParam<bool> {};

TEST_P(AtlasFillInAxis, WhatIsFilledIsLikeTheNearestTexels) {
    const SO<Image> image = blank(64, 64);
    UsedTexels used(64, 64);
    const auto pixelAt = [&](int x, int y) {
        return GetParam() ? pixelOf(*image, y, x) : pixelOf(*image, x, y);
    };
    const Pixel left{250, 100, 30, 255}, right{10, 20, 200, 90};
    for (const auto & [area, pixel] : {std::pair(NBX::Area(0, 0, 16, 64), left), {{48, 0, 16, 64}, right}}) {
        const NBX::Area place =
            GetParam() ? NBX::Area(area.getY(), area.getX(), area.getHeight(), area.getWidth()) : area;
        paint(*image, place, pixel);
        used.add(place);
    }
    fillUnusedTexels(used, *image);
    for (const int y : {0, 31, 63}) {
        for (unsigned layer = 0; layer < 4; ++layer) {
            EXPECT_NEAR(left[layer], pixelAt(16, y)[layer], 20) << y << ' ' << layer;
            EXPECT_NEAR(right[layer], pixelAt(47, y)[layer], 20) << y << ' ' << layer;
        }
        for (int x = 16; x <= 48; ++x) {
            EXPECT_LE(pixelAt(x, y)[0], pixelAt(x - 1, y)[0]) << "no edge, no hill " << x;
            EXPECT_LE(pixelAt(x - 1, y)[0] - pixelAt(x, y)[0], 30) << x;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, AtlasFillInAxis, testing::Bool());

/// The first layer, in rows of `width`.
std::vector<int> reds(const Image & image) {
    std::vector<int> values;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            values.push_back(pixelOf(image, x, y)[0]);
    return values;
}

TEST(AtlasFill, MeansAreRounded) {
    const SO<Image> row = blank(8, 1), square = blank(4, 2);
    UsedTexels ends(8, 1), half(4, 2);
    ends.add({0, 0, 2, 1});
    ends.add({6, 0, 2, 1});
    paint(*row, {6, 0, 2, 1}, {3, 0, 0, 0});
    fillUnusedTexels(ends, *row);
    EXPECT_EQ((std::vector<int>{0, 0, 1, 1, 2, 2, 3, 3}), reds(*row));
    half.add({0, 0, 2, 2});
    paint(*square, {0, 0, 1, 1}, {1, 0, 0, 0});
    paint(*square, {1, 1, 1, 1}, {1, 0, 0, 0});
    fillUnusedTexels(half, *square);
    EXPECT_EQ((std::vector<int>{1, 0, 1, 1, 0, 1, 1, 1}), reds(*square));
}

/// A coarse level has the colour of a plain picture wherever that lies, and its alpha.
TEST(AtlasFill, AHoleHasTheColourOfWhatIsAround) {
    const SO<Image> image = blank(50, 50), ring = blank(50, 50);
    paint(*image, {0, 0, 50, 50}, {200, 120, 60, 90});
    UsedTexels used(50, 50);
    for (const NBX::Area & area : {NBX::Area(3, 3, 40, 2), {3, 3, 2, 40}, {41, 3, 2, 40}, {3, 41, 40, 2}}) {
        used.add(area);
        paint(*ring, area, {200, 120, 60, 90});
    }
    fillUnusedTexels(used, *ring);
    for (int y = 0; y < 50; ++y)
        for (int x = 0; x < 50; ++x)
            EXPECT_EQ(pixelOf(*image, x, y), pixelOf(*ring, x, y)) << x << ' ' << y;
}

TEST(AtlasFill, AnAtlasWithoutAnythingStaysBlank) {
    const SO<Image> image = blank(16, 16);
    fillUnusedTexels(UsedTexels(16, 16), *image);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            EXPECT_EQ(Pixel(), pixelOf(*image, x, y));
}

TEST(AtlasFill, AMaskTellsWhichTexelsAreUsed) {
    const SO<Image> mask = blank(8, 4, NBX::LS_RGB), image = blank(8, 4);
    paint(*mask, {2, 1, 3, 2}, {255, 0, 0, 0});
    paint(*mask, {6, 1, 1, 1}, {127, 255, 255, 255});
    UsedTexels expected(8, 4);
    expected.add({2, 1, 3, 2});
    EXPECT_EQ(expected.bytes(), UsedTexels(*mask).bytes());
}

TEST(AtlasFill, AnAtlasOfAnotherSizeIsReported) {
    RecordedReports reports;
    const SO<Image> image = blank(16, 16), grey = blank(8, 8, NBX::LS_Luminance);
    UsedTexels used(8, 8);
    used.add({0, 0, 2, 2});
    fillUnusedTexels(used, *image);
    fillUnusedTexels(used, *grey);
    fillUnusedTexels(used, *blank(16, 8));
    fillUnusedTexels(used, *blank(8, 16));
    EXPECT_EQ(4U, reports.size());
    EXPECT_EQ(Pixel(), pixelOf(*image, 5, 5));
}

} // namespace
