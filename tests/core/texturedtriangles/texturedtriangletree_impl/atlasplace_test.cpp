#include "core/texturedtriangles/texturedtriangletree_impl/atlasplace.h"

#include <cmath>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>

namespace {

using namespace ZMT::CORE;
using NBX::Area;
using NBX::Bounds;
using NBX::Image;
using NBX::MemoryImage;
using NBX::SO;
using Point = AtlasPlace::Point;

constexpr int s_size = 64;
constexpr double s_factor = 65.0 / 64.0;

TEST(AtlasPlace, CoordinatesLieInTheAreaByTheFactorOfTheMapping) {
    const AtlasPlace place(Bounds({0.5, 2.0, 0.0}, {1.0, 4.0, 0.0}), Area(16, 8, 32, 16), s_size);
    const Point low = place.atlasCoordinates({0.5, 2.0, 0.0}), high = place.atlasCoordinates({1.0, 4.0, 0.0});
    EXPECT_DOUBLE_EQ(16.0 / 64.0 * s_factor, low.x);
    EXPECT_DOUBLE_EQ(8.0 / 64.0 * s_factor, low.y);
    EXPECT_DOUBLE_EQ(48.0 / 64.0 * s_factor, high.x);
    EXPECT_DOUBLE_EQ(24.0 / 64.0 * s_factor, high.y);
    EXPECT_DOUBLE_EQ(32.0 / 64.0 * s_factor, place.atlasCoordinates({0.75, 3.0, 0.0}).x);
    EXPECT_EQ(0.0, low.z);
}

TEST(AtlasPlace, WithoutExtentCoordinatesAreThoseOfTheLowerEdge) {
    const AtlasPlace place(Bounds({0.5, 2.0, 0.0}, {0.5 + 1e-11, 4.0, 0.0}), Area(16, 8, 32, 16), s_size);
    EXPECT_DOUBLE_EQ(0.25 * s_factor, place.atlasCoordinates({0.5 + 1e-11, 3.0, 0.0}).x);
    EXPECT_DOUBLE_EQ(0.25 * s_factor, place.atlasCoordinates({0.5 + 1e-11, 3.0, 0.0}).y);
}

/// A colour that tells the place: red grows with s, green with t.
SO<Image> ramp() {
    const SO<Image> image(new MemoryImage(256, 256, NBX::LS_RGBA));
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x) {
            unsigned char * pixel = image->pixelComponentsU8(x, y);
            pixel[0] = static_cast<unsigned char>(x);
            pixel[1] = static_cast<unsigned char>(y);
            pixel[2] = 77;
            pixel[3] = 255;
        }
    return image;
}

TEST(AtlasPlace, WhatIsLookedUpIsWhatTheTextureHasThere) {
    const SO<Image> atlas(new MemoryImage(s_size, s_size, NBX::LS_RGBA));
    const AtlasPlace place(Bounds({0.1, 0.2, 0.0}, {0.9, 0.7, 0.0}), Area(20, 30, 40, 25), s_size);
    const auto clamp = NBX::TextureGL::WM_ClampToEdge;
    place.draw(*ramp(), clamp, clamp, *atlas);
    for (double s = 0.12; s < 0.88; s += 0.04)
        for (double t = 0.22; t < 0.68; t += 0.04) {
            // Between texels, as the card filters.
            const Point at = place.atlasCoordinates({s, t, 0.0}) * double(s_size);
            const double x = at.x - 0.5, y = at.y - 0.5;
            const int left = int(std::floor(x)), low = int(std::floor(y));
            const auto between = [](double a, double b, double part) { return a + (b - a) * part; };
            const auto red = [&](int i) { return double(atlas->pixelComponentsU8(i, low)[0]); };
            const auto green = [&](int j) { return double(atlas->pixelComponentsU8(left, j)[1]); };
            EXPECT_NEAR(s * 256.0 - 0.5, between(red(left), red(left + 1), x - left), 1.0) << s;
            EXPECT_NEAR(t * 256.0 - 0.5, between(green(low), green(low + 1), y - low), 1.0) << t;
        }
}

/// The pixels whose middles lie in the area as triangles see it.
TEST(AtlasPlace, OnlyItsAreaIsDrawn) {
    const SO<Image> atlas(new MemoryImage(s_size, s_size, NBX::LS_RGBA));
    const auto repeat = NBX::TextureGL::WM_Repeat;
    AtlasPlace(Bounds({0, 0, 0}, {1, 1, 0}), Area(40, 0, 24, 10), s_size)
        .draw(*ramp(), repeat, repeat, *atlas);
    for (int y = 0; y < s_size; ++y)
        for (int x = 0; x < s_size; ++x) {
            const double middleX = (x + 0.5) / s_factor, middleY = (y + 0.5) / s_factor;
            const bool isInside = middleX >= 40.0 && middleX < 64.0 && middleY < 10.0;
            EXPECT_EQ(isInside ? 77 : 0, atlas->pixelComponentsU8(x, y)[2]) << x << ' ' << y;
        }
}

/// Areas side by side leave no gap and cover nothing twice.
TEST(AtlasPlace, NeighboursShareNoTexelAndLeaveNone) {
    const SO<Image> both(new MemoryImage(s_size, s_size, NBX::LS_RGBA)),
        second(new MemoryImage(s_size, s_size, NBX::LS_RGBA));
    const auto repeat = NBX::TextureGL::WM_Repeat;
    const Bounds part({0, 0, 0}, {1, 1, 0});
    for (int begin = 0; begin < s_size; begin += 13)
        AtlasPlace(part, Area(begin, 0, unsigned(std::min(13, s_size - begin)), 64), s_size)
            .draw(*ramp(), repeat, repeat, *both);
    for (int x = 0; x < s_size; ++x)
        EXPECT_EQ(255, both->pixelComponentsU8(x, 20)[3]) << x;
    AtlasPlace(part, Area(13, 0, 13, 64), s_size).draw(*ramp(), repeat, repeat, *second);
    AtlasPlace(part, Area(26, 0, 13, 64), s_size).draw(*ramp(), repeat, repeat, *second);
    for (int x = 0; x < s_size; ++x)
        EXPECT_EQ(second->pixelComponentsU8(x, 20)[3] ? both->pixelComponentsU8(x, 20)[0] : 0,
                  second->pixelComponentsU8(x, 20)[0])
            << x;
}

TEST(AtlasPlace, APartWithoutExtentIsOneLineOfTheTexture) {
    const SO<Image> atlas(new MemoryImage(s_size, s_size, NBX::LS_RGBA));
    const auto repeat = NBX::TextureGL::WM_Repeat;
    AtlasPlace(Bounds({0.5, 0, 0}, {0.5, 1, 0}), Area(0, 0, 17, 40), s_size)
        .draw(*ramp(), repeat, repeat, *atlas);
    for (int x = 0; x < 17; ++x)
        EXPECT_NEAR(127.5, atlas->pixelComponentsU8(x, 20)[0], 0.6) << x;
}

TEST(AtlasPlace, ItsTexelsAreThoseThatAreDrawn) {
    const SO<Image> white(new NBX::MemoryImage(4, 4, NBX::LS_RGBA)),
        atlas(new NBX::MemoryImage(64, 64, NBX::LS_RGBA));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            white->setColor(x, y, NBX::Color::white);
    NBX::Bounds part;
    part += NBX::Vector3Base<double>(0.0, 0.0, 0.0);
    part += NBX::Vector3Base<double>(1.0, 1.0, 0.0);
    const AtlasPlace place(part, {35, 3, 29, 11}, 64);
    place.draw(*white, NBX::TextureGL::WM_Repeat, NBX::TextureGL::WM_Repeat, *atlas);
    const NBX::Area texels = place.texels();
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            const bool isInside = x >= texels.getX() && x < texels.getX() + int(texels.getWidth()) &&
                                  y >= texels.getY() && y < texels.getY() + int(texels.getHeight());
            EXPECT_EQ(isInside ? 255 : 0, atlas->pixelComponentsU8(x, y, 3)[0]) << x << ' ' << y;
        }
}

} // namespace
