#include "core/texturedtriangles/texturedtriangletree_impl/texturepart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>
#include <support/damagedfiles.h>

namespace {

using namespace ZMT::CORE;
using NBX::Image;
using NBX::MemoryImage;
using NBX::SO;
using NBX::TextureGL;

/// Of one row, with these values of red; the other layers differ from it.
SO<Image> row(const std::vector<int> & values) {
    const SO<Image> image(new MemoryImage(int(values.size()), 1, NBX::LS_RGBA));
    for (std::size_t x = 0; x < values.size(); ++x) {
        unsigned char * pixel = image->pixelComponentsU8(int(x), 0);
        const std::array<int, 4> layers = {values[x], 255 - values[x], values[x] / 2, 200};
        for (unsigned i = 0; i < 4; ++i)
            pixel[i] = static_cast<unsigned char>(layers[i]);
    }
    return image;
}

const TextureStretch s_all{0.0, 1.0, 1, TextureGL::WM_Repeat};

/// The values of red.
std::vector<int> drawnRow(const SO<Image> & source, const TextureStretch & s) {
    const SO<Image> target(new MemoryImage(int(s.pixels), 1, NBX::LS_RGBA));
    drawTexturePart(*source, s, s_all, *target);
    std::vector<int> values;
    for (unsigned x = 0; x < s.pixels; ++x)
        values.push_back(target->pixelComponentsU8(int(x), 0)[0]);
    return values;
}

TEST(TexturePart, ATexelUnderAPixelIsTheSame) {
    const SO<Image> source = row({10, 250, 30, 90});
    const SO<Image> target(new MemoryImage(4, 1, NBX::LS_RGBA));
    drawTexturePart(*source, {0.0, 0.25, 4, TextureGL::WM_Repeat}, s_all, *target);
    for (int x = 0; x < 4; ++x)
        for (int layer = 0; layer < 4; ++layer)
            EXPECT_EQ(source->pixelComponentsU8(x, 0, layer)[0], target->pixelComponentsU8(x, 0, layer)[0])
                << x << ' ' << layer;
}

TEST(TexturePart, SeveralTexelsGiveTheirMean) {
    EXPECT_EQ((std::vector<int>{20, 70}),
              drawnRow(row({10, 30, 60, 80}), {0.0, 0.5, 2, TextureGL::WM_Repeat}));
    EXPECT_EQ((std::vector<int>{45}), drawnRow(row({10, 30, 60, 80}), {0.25, 0.5, 1, TextureGL::WM_Repeat}));
    EXPECT_EQ((std::vector<int>{33}), drawnRow(row({0, 100}), {0.0, 0.75, 1, TextureGL::WM_Repeat}))
        << "one and a half texels";
}

TEST(TexturePart, LargeTexelsAreInterpolated) {
    EXPECT_EQ((std::vector<int>{25, 75}),
              drawnRow(row({0, 100}), {0.25, 0.25, 2, TextureGL::WM_ClampToEdge}));
    EXPECT_EQ((std::vector<int>{100}), drawnRow(row({0, 100}), {0.75, 0.0, 1, TextureGL::WM_ClampToEdge}))
        << "a pixel without extent";
}

TEST(TexturePart, BeyondTheEdgesTheWrapModeHolds) {
    const SO<Image> source = row({10, 20, 30, 40});
    const TextureStretch around{-0.5, 0.25, 8, TextureGL::WM_Repeat};
    TextureStretch s = around;
    EXPECT_EQ((std::vector<int>{30, 40, 10, 20, 30, 40, 10, 20}), drawnRow(source, s));
    s.wrap = TextureGL::WM_MirroredRepeat;
    EXPECT_EQ((std::vector<int>{20, 10, 10, 20, 30, 40, 40, 30}), drawnRow(source, s));
    for (const auto wrap : {TextureGL::WM_Clamp, TextureGL::WM_ClampToEdge, TextureGL::WM_ClampToBorder}) {
        s.wrap = wrap;
        EXPECT_EQ((std::vector<int>{10, 10, 10, 20, 30, 40, 40, 40}), drawnRow(source, s));
    }
}

TEST(TexturePart, ManyRepetitionsUnderAPixelAreOneMean) {
    EXPECT_EQ((std::vector<int>{25, 25}),
              drawnRow(row({10, 20, 30, 40}), {-1000.0, 1e6, 2, TextureGL::WM_Repeat}));
    EXPECT_EQ((std::vector<int>{25}),
              drawnRow(row({10, 20, 30, 40}), {0.3, 400.0, 1, TextureGL::WM_MirroredRepeat}));
}

int wrapped(int texel, int texels, TextureGL::WrapMode wrap) {
    if (wrap == TextureGL::WM_ClampToEdge) return std::clamp(texel, 0, texels - 1);
    const int period = wrap == TextureGL::WM_MirroredRepeat ? 2 * texels : texels;
    const int inPeriod = ((texel % period) + period) % period;
    return inPeriod < texels ? inPeriod : period - 1 - inPeriod;
}

/// Texel by texel.
double referenceMean(const Image & source, double s0, double s1, TextureGL::WrapMode wrapS, double t0,
                     double t1, TextureGL::WrapMode wrapT, unsigned layer) {
    const auto widened = [](double & a, double & b) {
        if (b - a >= 1.0) return;
        const double middle = (a + b) / 2.0;
        a = middle - 0.5;
        b = middle + 0.5;
    };
    double a = s0 * source.width(), b = s1 * source.width(), c = t0 * source.height(),
           d = t1 * source.height();
    widened(a, b);
    widened(c, d);
    double sum = 0.0;
    for (int y = int(std::floor(c)); y < d; ++y)
        for (int x = int(std::floor(a)); x < b; ++x)
            sum += (std::min(b, x + 1.0) - std::max(a, double(x))) *
                   (std::min(d, y + 1.0) - std::max(c, double(y))) *
                   source.pixelComponentsU8(wrapped(x, source.width(), wrapS),
                                            wrapped(y, source.height(), wrapT), int(layer))[0];
    return sum / ((b - a) * (d - c));
}

TEST(TexturePart, IsTheMeanOfTheTexelsUnderEachPixel) {
    std::mt19937 random(7);
    const auto number = [&random](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    constexpr std::array modes = {TextureGL::WM_Repeat, TextureGL::WM_ClampToEdge,
                                  TextureGL::WM_MirroredRepeat};
    for (int round = 0; round < 300; ++round) {
        const unsigned layers = round % 2 == 0 ? 4 : 3;
        const SO<Image> source(new MemoryImage(int(number(1.0, 9.0)), int(number(1.0, 9.0)),
                                               layers == 4 ? NBX::LS_RGBA : NBX::LS_RGB));
        for (int y = 0; y < source->height(); ++y)
            for (unsigned i = 0; i < unsigned(source->width()) * layers; ++i)
                source->lineComponentsU8(y)[i] = static_cast<unsigned char>(random());
        const TextureStretch s{number(-4.0, 4.0), std::pow(10.0, number(-3.0, 0.7)), 3, modes[random() % 3]};
        const TextureStretch t{number(-4.0, 4.0), std::pow(10.0, number(-3.0, 0.7)), 2, modes[random() % 3]};
        const SO<Image> target(new MemoryImage(3, 2, NBX::LS_RGBA));
        drawTexturePart(*source, s, t, *target);
        for (unsigned y = 0; y < 2; ++y)
            for (unsigned x = 0; x < 3; ++x)
                for (unsigned layer = 0; layer < layers; ++layer)
                    EXPECT_NEAR(referenceMean(*source, s.begin + x * s.step, s.begin + (x + 1) * s.step,
                                              s.wrap, t.begin + y * t.step, t.begin + (y + 1) * t.step,
                                              t.wrap, layer),
                                target->pixelComponentsU8(int(x), int(y), int(layer))[0], 0.502)
                        << "round " << round;
    }
}

TEST(TexturePart, AllKindsOfImagesWillDo) {
    const SO<Image> grey(new MemoryImage(2, 1, NBX::LS_Luminance)),
        deep(new MemoryImage(2, 1, NBX::LS_RGB, Image::UInt16));
    for (const SO<Image> & source : {grey, deep}) {
        source->setColor(0, 0, NBX::Color(0.4F, 0.4F, 0.4F));
        source->setColor(1, 0, NBX::Color(0.8F, 0.8F, 0.8F));
        const SO<Image> target(new MemoryImage(1, 1, NBX::LS_RGBA));
        drawTexturePart(*source, s_all, s_all, *target);
        EXPECT_NEAR(153, target->pixelComponentsU8(0, 0)[0], 1);
        EXPECT_NEAR(153, target->pixelComponentsU8(0, 0)[2], 1);
        EXPECT_EQ(255, target->pixelComponentsU8(0, 0)[3]) << "opaque";
    }
}

/// What is converted line by line, wherever parts begin and end.
TEST(TexturePart, GreyAndDeepImagesAreDrawnLikeTheirCopiesInRGBA) {
    std::mt19937 random(4);
    std::uniform_real_distribution<double> any(-1.5, 1.5);
    const SO<Image> grey(new MemoryImage(7, 9, NBX::LS_LuminanceAlpha)),
        deep(new MemoryImage(7, 9, NBX::LS_RGB, Image::UInt16)), copy(new MemoryImage(7, 9, NBX::LS_RGBA));
    for (const SO<Image> & image : {grey, deep})
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 7; ++x)
                image->setColor(x, y,
                                NBX::Color(float(any(random)), float(any(random)), float(any(random)),
                                           float(any(random))));
    for (int round = 0; round < 200; ++round) {
        const SO<Image> & source = round < 100 ? grey : deep;
        copy->copy(source.get());
        const TextureStretch s{any(random), std::abs(any(random)) / 4, 3, TextureGL::WM_Repeat},
            t{any(random), std::abs(any(random)) / 4, 5,
              round % 2 ? TextureGL::WM_MirroredRepeat : TextureGL::WM_ClampToEdge};
        const SO<Image> drawn(new MemoryImage(3, 5, NBX::LS_RGBA)),
            expected(new MemoryImage(3, 5, NBX::LS_RGBA));
        drawTexturePart(*source, s, t, *drawn);
        drawTexturePart(*copy, s, t, *expected);
        for (int y = 0; y < 5; ++y)
            for (int i = 0; i < 12; ++i)
                ASSERT_EQ(expected->lineComponentsU8(y)[i], drawn->lineComponentsU8(y)[i])
                    << round << ": " << y << ' ' << i;
    }
}

/// Grey of 16 bits, whose lines are made when they are asked for.
class WideGrey : public Image {
    NBX_TEMPLATE_CLASS(WideGrey, Image)
public:
    static constexpr int side = 1 << 14;

    WideGrey() : Image(NBX::LS_Luminance, UInt16) {}
    int width() const override { return side; }
    int height() const override { return side; }
    using Image::lineComponents;
    const void * lineComponents(int y) const override {
        ++lines;
        std::fill(line_.begin(), line_.end(), y < side / 2 ? std::uint16_t(0xffff) : std::uint16_t(0));
        return line_.data();
    }

    mutable int lines = 0;

private:
    mutable std::vector<std::uint16_t> line_ = std::vector<std::uint16_t>(side);
};

/// As bytes of RGBA the whole picture would take 1 GiB.
TEST(TexturePart, OfALargeGreyPictureTwoLinesAreConverted) {
    const SO<WideGrey> source(new WideGrey);
    const SO<Image> target(new MemoryImage(2, 2, NBX::LS_RGBA));
    const double texel = 1.0 / WideGrey::side;
    {
        const ModestLook modest(0);
        drawTexturePart(*source, {0.0, 0.5, 2, TextureGL::WM_Repeat},
                        {0.5 - 3.0 * texel, 4.0 * texel, 2, TextureGL::WM_Repeat}, *target);
    }
    EXPECT_EQ(191, target->pixelComponentsU8(1, 0)[2]) << "three texels of four";
    EXPECT_EQ(0, target->pixelComponentsU8(1, 1)[2]);
    EXPECT_EQ(255, target->pixelComponentsU8(1, 1)[3]);
    EXPECT_LE(source->lines, 12) << "those of the part alone";
}

/// More than is kept between the two passes at once.
TEST(TexturePart, WideTexturesAreDrawnInStrips) {
    const SO<Image> source(new MemoryImage(1 << 16, 10, NBX::LS_RGBA));
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < source->width(); ++x) {
            source->pixelComponentsU8(x, y)[0] = x < 1 << 15 ? 0 : 200;
            source->pixelComponentsU8(x, y)[1] = static_cast<unsigned char>(20 * y);
        }
    const SO<Image> target(new MemoryImage(2, 70, NBX::LS_RGBA));
    drawTexturePart(*source, {0.0, 0.5, 2, TextureGL::WM_Repeat}, {0.0, 0.1, 70, TextureGL::WM_Repeat},
                    *target);
    for (int y = 0; y < 70; ++y) {
        EXPECT_EQ(0, target->pixelComponentsU8(0, y)[0]) << y;
        EXPECT_EQ(200, target->pixelComponentsU8(1, y)[0]) << y;
        EXPECT_EQ(20 * (y % 10), target->pixelComponentsU8(1, y)[1]) << y;
    }
}

/// Sums of many texels.
TEST(TexturePart, TallTexturesHaveTheirMeanToo) {
    const SO<Image> source(new MemoryImage(1, 1 << 16, NBX::LS_RGB));
    for (int y = 0; y < source->height(); ++y)
        source->pixelComponentsU8(0, y)[2] = y < 3 << 14 ? 255 : 55;
    const SO<Image> target(new MemoryImage(1, 2, NBX::LS_RGBA));
    const TextureStretch all{0.0, 1.0, 1, TextureGL::WM_ClampToEdge};
    for (const auto wrap : {TextureGL::WM_Repeat, TextureGL::WM_ClampToEdge, TextureGL::WM_MirroredRepeat}) {
        drawTexturePart(*source, all, {0.0, 0.5, 2, wrap}, *target);
        EXPECT_EQ(255, target->pixelComponentsU8(0, 0)[2]);
        EXPECT_EQ(155, target->pixelComponentsU8(0, 1)[2]);
        EXPECT_EQ(255, target->pixelComponentsU8(0, 1)[3]);
    }
}

TEST(TexturePart, PlacesThatAreNoNumbersDrawNothing) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const TextureStretch & s :
         {TextureStretch{nan, 1.0, 1}, TextureStretch{0.0, nan, 1}, TextureStretch{0.0, -1.0, 1},
          TextureStretch{0.0, std::numeric_limits<double>::infinity(), 1}})
        EXPECT_EQ((std::vector<int>{0}), drawnRow(row({100, 100}), s));
}

} // namespace
