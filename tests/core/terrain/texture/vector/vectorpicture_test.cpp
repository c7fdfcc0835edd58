#include "core/terrain/texture/vector/vectorpicture.h"

#include <algorithm>
#include <array>

#include <gtest/gtest.h>

using NBX::MemoryImage;
using NBX::SO;
using ZMT::CORE::VectorPicture;

namespace {

using Texel = std::array<int, 4>;

SO<MemoryImage> image(int width, int height) {
    return new MemoryImage(width, height, NBX::LS_RGBA);
}

void set(MemoryImage & image, int x, int y, const Texel & texel) {
    for (int i = 0; i < 4; ++i)
        image.lineComponentsU8(y)[4 * x + i] = static_cast<unsigned char>(texel[static_cast<unsigned>(i)]);
}

Texel get(const MemoryImage & image, int x, int y) {
    const unsigned char * p = image.lineComponentsU8(y) + 4 * static_cast<std::ptrdiff_t>(x);
    return {p[0], p[1], p[2], p[3]};
}

TEST(VectorPicture, HasAllLevels) {
    const VectorPicture::Levels levels = VectorPicture::levels(*image(13, 4));
    ASSERT_EQ(levels.size(), 4U);
    EXPECT_EQ(levels[0]->width(), 13);
    EXPECT_EQ(levels[1]->width(), 6);
    EXPECT_EQ(levels[1]->height(), 2);
    EXPECT_EQ(levels[3]->width(), 1);
    EXPECT_EQ(levels[3]->height(), 1);
    EXPECT_EQ(get(*levels[0], 5, 2), (Texel{255, 255, 255, 0})) << "nothing is transparent white";
}

TEST(VectorPicture, ColoursAreDividedByTheirAlpha) {
    const SO<MemoryImage> drawn = image(2, 1);
    set(*drawn, 0, 0, {60, 20, 0, 100});
    set(*drawn, 1, 0, {10, 20, 30, 255});
    const VectorPicture::Levels levels = VectorPicture::levels(*drawn);
    EXPECT_EQ(get(*levels[0], 0, 0), (Texel{153, 51, 0, 100}));
    EXPECT_EQ(get(*levels[0], 1, 0), (Texel{10, 20, 30, 255}));
    // The average by alpha: 70 / 355, 40 / 355, 30 / 355.
    const Texel average = get(*levels[1], 0, 0);
    EXPECT_NEAR(average[0], 50, 1);
    EXPECT_NEAR(average[1], 29, 1);
    EXPECT_NEAR(average[2], 21, 1);
    EXPECT_EQ(average[3], 178);
}

/// A filter mixes a texel with its neighbours: none of them may bring a colour that was not drawn.
TEST(VectorPicture, BesideADarkLineAllIsDarkAtEveryLevel) {
    for (int column = 28; column < 36; ++column) {
        const SO<MemoryImage> drawn = image(64, 64);
        for (int y = 0; y < 64; ++y)
            set(*drawn, column, y, {20, 0, 0, 255});
        const VectorPicture::Levels levels = VectorPicture::levels(*drawn);
        for (const SO<MemoryImage> & level : levels)
            for (int x = 0; x + 1 < level->width(); ++x) {
                const Texel a = get(*level, x, 0), b = get(*level, x + 1, 0);
                if (a[3] == 0 && b[3] == 0) continue;
                const double share = std::max(a[3], b[3]) / 255.0;
                for (const Texel & texel : {a, b}) {
                    // As far as it shows.
                    EXPECT_NEAR(texel[0] * share, 20.0 * share, 2.0)
                        << column << " " << level->width() << " " << x;
                    EXPECT_EQ(texel[1], 0) << column << " " << level->width() << " " << x;
                }
            }
        // Between two levels as well.
        for (std::size_t i = 0; i + 1 < levels.size(); ++i)
            for (int x = 0; x < levels[i]->width(); ++x) {
                if (get(*levels[i + 1], std::min(x / 2, levels[i + 1]->width() - 1), 0)[3] == 0) continue;
                EXPECT_EQ(get(*levels[i], x, 0)[1], 0) << column << " level " << i << " " << x;
            }
    }
}

TEST(VectorPicture, FarFromEverythingItIsWhite) {
    const SO<MemoryImage> drawn = image(64, 64);
    set(*drawn, 0, 0, {20, 0, 0, 255});
    EXPECT_EQ(get(*VectorPicture::levels(*drawn)[0], 60, 60), (Texel{255, 255, 255, 0}));
}

/// A red and a green texel with two transparent ones between them, on each axis.
TEST(VectorPicture, ATransparentTexelTakesFromTheFinestLevelByTheDistance) {
    for (const bool isColumn : {false, true}) {
        const SO<MemoryImage> drawn = image(64, 64);
        set(*drawn, 0, 0, {255, 0, 0, 255});
        set(*drawn, isColumn ? 0 : 3, isColumn ? 3 : 0, {0, 255, 0, 255});
        const VectorPicture::Levels levels = VectorPicture::levels(*drawn);
        const auto at = [&](int i) { return get(*levels[0], isColumn ? 0 : i, isColumn ? i : 0); };
        EXPECT_EQ(at(1), (Texel{191, 64, 0, 0})) << isColumn;
        EXPECT_EQ(at(2), (Texel{64, 191, 0, 0})) << isColumn;
    }
}

TEST(VectorPicture, ThreeLevelsAreAskedForAColour) {
    const SO<MemoryImage> drawn = image(64, 64);
    set(*drawn, 0, 0, {20, 0, 0, 255});
    const VectorPicture::Levels levels = VectorPicture::levels(*drawn);
    for (const int i : {2, 5, 7, 11})
        EXPECT_EQ(get(*levels[0], i, i), (Texel{20, 0, 0, 0})) << i;
    EXPECT_EQ(get(*levels[0], 12, 12), (Texel{255, 255, 255, 0}));
}

TEST(VectorPicture, WhatIsOneTexelWideIsHalvedAlongTheOtherAxis) {
    for (const bool isColumn : {false, true}) {
        const SO<MemoryImage> drawn = isColumn ? image(1, 2) : image(2, 1);
        set(*drawn, 0, 0, {200, 100, 0, 200});
        const VectorPicture::Levels levels = VectorPicture::levels(*drawn);
        ASSERT_EQ(levels.size(), 2U);
        EXPECT_EQ(get(*levels[1], 0, 0), (Texel{255, 128, 0, 100})) << isColumn;
    }
    const VectorPicture::Levels one = VectorPicture::levels(*image(1, 1));
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(get(*one[0], 0, 0), (Texel{255, 255, 255, 0}));
}

} // namespace
