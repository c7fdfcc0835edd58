#include <nbx/image/image.h>

#include <nbx/math/color.h>

#include "support/recordedreports.h"
#include "testimages.h"

using namespace NBX;

namespace {

constexpr LayerSequence allSequences[] = {LS_Luminance, LS_LuminanceAlpha, LS_RGB, LS_RGBA,
                                          LS_Alpha,     LS_Intensity,      LS_BGR, LS_BGRA};
constexpr int allTypes[] = {Image::UInt8, Image::UInt16, Image::Half, Image::Float};

SO<MemoryImage> greyImage(int width, int height, const std::vector<int> & values) {
    SO<MemoryImage> image(new MemoryImage(width, height, LS_Luminance));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            *image->pixelComponentsU8(x, y) = static_cast<unsigned char>(values[y * width + x]);
    return image;
}

std::vector<int> greyValues(const Image & image) {
    std::vector<int> values;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            values.push_back(*image.pixelComponentsU8(x, y));
    return values;
}

void expectNear(const Color & a, const Color & b, double tolerance) {
    for (unsigned c = 0; c < 4; ++c)
        EXPECT_NEAR(a[c], b[c], tolerance) << "component " << c;
}

/// Mean over the exact area, written down as slowly as possible.
double boxMean(const Image & image, double x0, double x1, double y0, double y1) {
    double sum = 0.0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const double dx = std::min(x1, x + 1.0) - std::max(x0, double(x));
            const double dy = std::min(y1, y + 1.0) - std::max(y0, double(y));
            if (dx > 0 && dy > 0) sum += dx * dy * *image.pixelComponentsU8(x, y);
        }
    return sum / ((x1 - x0) * (y1 - y0));
}

} // namespace

TEST(ImageTest, LayerSequencesHaveTheirNumbers) {
    const std::pair<LayerSequence, int> layers[] = {
        {LS_Luminance, 1}, {LS_LuminanceAlpha, 2}, {LS_RGB, 3}, {LS_RGBA, 4},
        {LS_Alpha, 1},     {LS_Intensity, 1},      {LS_BGR, 3}, {LS_BGRA, 4}};
    for (const auto & [sequence, count] : layers) {
        EXPECT_EQ(Image::numberOfLayers(sequence), count) << sequence;
        EXPECT_EQ(Image::bitsPerPixel(sequence, Image::UInt8), 8 * count);
        EXPECT_EQ(Image::bitsPerPixel(sequence, Image::Half), 16 * count);
        EXPECT_EQ(Image::bitsPerPixel(sequence, Image::Float), 32 * count);
    }
    EXPECT_FALSE(Image::isValidFormat(0, Image::UInt8));
    EXPECT_FALSE(Image::isValidFormat(5, Image::UInt8));
    EXPECT_FALSE(Image::isValidFormat(12, Image::UInt8));
    EXPECT_FALSE(Image::isValidFormat(LS_RGB, 4));
}

TEST(ImageTest, HasLayersTellsWhatCanBeReadWithoutLoss) {
    const SO<Image> rgb(new MemoryImage(1, 1, LS_RGB)), grey(new MemoryImage(1, 1, LS_Luminance)),
        bgra(new MemoryImage(1, 1, LS_BGRA)), alpha(new MemoryImage(1, 1, LS_Alpha));
    EXPECT_TRUE(rgb->hasLayers(LS_BGR));
    EXPECT_FALSE(rgb->hasLayers(LS_RGBA));
    EXPECT_FALSE(rgb->hasLayers(LS_Luminance));
    EXPECT_TRUE(grey->hasLayers(LS_RGB));
    EXPECT_FALSE(grey->hasLayers(LS_LuminanceAlpha));
    EXPECT_TRUE(bgra->hasLayers(LS_Alpha));
    EXPECT_TRUE(bgra->hasLayers(LS_RGBA));
    EXPECT_FALSE(alpha->hasLayers(LS_Luminance));
}

TEST(ImageTest, ColorsComeBackFromEveryFormat) {
    const Color color(0.25, 0.5, 0.75, 0.125);
    const float luma = 0.299F * 0.25F + 0.587F * 0.5F + 0.114F * 0.75F;
    for (const LayerSequence sequence : allSequences)
        for (const int type : allTypes) {
            SCOPED_TRACE(testing::Message() << "layers " << sequence << ", type " << type);
            const SO<Image> image(new MemoryImage(2, 2, sequence, type));
            image->setColor(1, 1, color);
            Color expected = color;
            if (!image->hasLayers(LS_Alpha)) expected[3] = 1.0F;
            if (image->numberOfLayers() < 3) expected = Color(luma, luma, luma, expected[3]);
            if (sequence == LS_Alpha) expected = Color(1.0, 1.0, 1.0, 0.125);
            if (sequence == LS_Intensity) expected[3] = luma;
            const double step = type == Image::UInt8 ? 1 / 255.0 : type == Image::Float ? 1e-6 : 1e-3;
            expectNear(image->getColor(1, 1), expected, step);
            expectNear(image->getColor(0, 1), image->getColor(1, 0), 0.0);
        }
}

TEST(ImageTest, EmptyTextureIsTransparentWhite) {
    const SO<Image> image(new MemoryImage(1, 1, LS_RGBA));
    image->setColor(0, 0, Color(1.0, 1.0, 1.0, 0.0));
    EXPECT_EQ(*image->pixelComponentsU8(0, 0, 0), 255);
    EXPECT_EQ(*image->pixelComponentsU8(0, 0, 3), 0);
    EXPECT_EQ(image->getColor(0, 0), Color(1.0, 1.0, 1.0, 0.0));
}

TEST(ImageTest, PixelsOutsideAreReported) {
    RecordedReports reports;
    const SO<Image> image(new MemoryImage(3, 2, LS_RGB));
    EXPECT_EQ(image->pixelComponents(3, 0), nullptr);
    EXPECT_EQ(image->pixelComponents(-1, 0), nullptr);
    EXPECT_EQ(image->pixelComponents(0, 2), nullptr);
    EXPECT_EQ(image->pixelComponents(0, 0, 3), nullptr);
    EXPECT_EQ(image->lineComponents(-1), nullptr);
    EXPECT_EQ(reports.size(), 5u);
    EXPECT_EQ(reports[0].level, 0);
    EXPECT_EQ(reports[0].message, L"range error: [0, 3), 3");
    EXPECT_EQ(image->getColor(7, 0), Color());
    image->setColor(7, 0, Color::white);
    EXPECT_EQ(reports.size(), 7u);
}

TEST(ImageTest, BytesOfOtherTypesAreReported) {
    RecordedReports reports;
    const SO<Image> image(new MemoryImage(1, 1, LS_Luminance, Image::Float));
    image->lineComponentsU8(0);
    EXPECT_EQ(reports.count(0, L"dataType() == UInt8", L"components are not of 8 bits"), 1u);
}

TEST(ImageTest, CopyBetweenAllFormatsEqualsColorByColor) {
    for (const LayerSequence from : allSequences)
        for (const LayerSequence to : allSequences)
            for (const int type : allTypes) {
                SCOPED_TRACE(testing::Message() << from << " to " << to << ", type " << type);
                // More pixels than one run of the conversion, and no multiple of it.
                const SO<MemoryImage> source = randomImage(301, 2, from);
                const SO<Image> target(new MemoryImage(301, 2, to, type, 8)),
                    expected(new MemoryImage(301, 2, to, type));
                ASSERT_TRUE(target->copy(source.get()));
                for (int y = 0; y < 2; ++y)
                    for (int x = 0; x < 301; ++x)
                        expected->setColor(x, y, source->getColor(x, y));
                EXPECT_TRUE(samePixels(*target, *expected));
            }
}

TEST(ImageTest, IntegersSurviveTheWayThroughWiderTypes) {
    const SO<MemoryImage> bytes = randomImage(256, 3, LS_RGBA);
    for (const int type : {Image::UInt16, Image::Half, Image::Float}) {
        const SO<Image> wide(new MemoryImage(256, 3, LS_BGRA, type)), back(new MemoryImage(256, 3, LS_RGBA));
        wide->copy(bytes.get());
        back->copy(wide.get());
        EXPECT_TRUE(samePixels(*bytes, *back)) << type;
    }
}

TEST(ImageTest, EveryHalfComesBackFromFloat) {
    const SO<MemoryImage> half(new MemoryImage(65536, 1, LS_Luminance, Image::Half));
    const SO<Image> wide(new MemoryImage(65536, 1, LS_Luminance, Image::Float)),
        back(new MemoryImage(65536, 1, LS_Luminance, Image::Half));
    auto * bits = static_cast<std::uint16_t *>(static_cast<Image &>(*half).lineComponents(0));
    for (int i = 0; i < 65536; ++i)
        bits[i] = static_cast<std::uint16_t>(i);
    wide->copy(half.get());
    back->copy(wide.get());
    const auto * returned = static_cast<const std::uint16_t *>(back->lineComponents(0));
    const auto * value = static_cast<const float *>(wide->lineComponents(0));
    for (int i = 0; i < 65536; ++i) {
        if ((i & 0x7C00) == 0x7C00 && (i & 0x3FF))
            EXPECT_TRUE(std::isnan(value[i])) << i;
        else
            ASSERT_EQ(returned[i], i);
    }
    EXPECT_EQ(value[0x3C00], 1.0F);
    EXPECT_EQ(value[0x0001], 0x1p-24F);
    EXPECT_EQ(value[0x7BFF], 65504.0F);
    EXPECT_EQ(value[0xC000], -2.0F);
}

TEST(ImageTest, FloatsRoundToTheNearestHalf) {
    const SO<Image> wide(new MemoryImage(6, 1, LS_Luminance, Image::Float)),
        half(new MemoryImage(6, 1, LS_Luminance, Image::Half));
    const float values[] = {1.0F + 0x1p-11F, 1.0F + 3 * 0x1p-11F, 65520.0F, 0x1p-25F, 1.5F * 0x1p-25F, 1e30F};
    std::memcpy(wide->lineComponents(0), values, sizeof(values));
    half->copy(wide.get());
    const auto * bits = static_cast<const std::uint16_t *>(half->lineComponents(0));
    EXPECT_EQ(std::vector<int>(bits, bits + 6), (std::vector<int>{0x3C00, 0x3C02, 0x7C00, 0, 1, 0x7C00}));
}

TEST(ImageTest, ValuesBeyondTheIntegersAreCut) {
    const SO<Image> wide(new MemoryImage(4, 1, LS_Luminance, Image::Float)),
        bytes(new MemoryImage(4, 1, LS_Luminance));
    const float values[] = {-3.0F, 7.0F, std::nanf(""), 0.5F};
    std::memcpy(wide->lineComponents(0), values, sizeof(values));
    bytes->copy(wide.get());
    EXPECT_EQ(greyValues(*bytes), (std::vector<int>{0, 255, 0, 128}));
}

TEST(ImageTest, CopyRefusesWhatHasNoPixels) {
    RecordedReports reports;
    const SO<Image> image(new MemoryImage(2, 2, LS_RGB)), none(new MemoryImage(0, 2, LS_RGB));
    reports.clear();
    EXPECT_FALSE(image->copy(nullptr));
    EXPECT_FALSE(image->copy(none.get()));
    EXPECT_FALSE(none->copy(image.get()));
    EXPECT_EQ(reports.size(), 3u);
    EXPECT_TRUE(image->copy(image.get()));
    EXPECT_EQ(reports.size(), 3u);
}

TEST(ImageTest, ShrinkingIsTheMeanOverTheExactArea) {
    const std::pair<int, int> widths[] = {{7, 3}, {5, 2}, {9, 9}, {16, 8}, {3, 1}, {1, 1}, {10, 7}};
    for (const auto & [from, to] : widths) {
        const SO<MemoryImage> source = randomImage(from, from + 4, LS_Luminance);
        const SO<Image> target(new MemoryImage(to, 5, LS_Luminance));
        ASSERT_TRUE(target->copy(source.get()));
        const double stepX = double(from) / to, stepY = (from + 4) / 5.0;
        for (int y = 0; from + 4 >= 5 && y < 5; ++y)
            for (int x = 0; x < to; ++x)
                EXPECT_NEAR(*target->pixelComponentsU8(x, y),
                            boxMean(*source, x * stepX, (x + 1) * stepX, y * stepY, (y + 1) * stepY), 0.51)
                    << from << " to " << to << " at " << x << ", " << y;
    }
}

TEST(ImageTest, HalvingRoundsLikeTheGeneralFilter) {
    for (const LayerSequence sequence : allSequences) {
        const SO<MemoryImage> source = randomImage(64, 32, sequence);
        const SO<Image> target(new MemoryImage(32, 16, sequence));
        ASSERT_TRUE(target->copy(source.get()));
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 32; ++x)
                for (int c = 0; c < source->numberOfLayers(); ++c) {
                    int sum = 2;
                    for (int k = 0; k < 4; ++k)
                        sum += *source->pixelComponentsU8(2 * x + k % 2, 2 * y + k / 2, c);
                    ASSERT_EQ(*target->pixelComponentsU8(x, y, c), sum / 4) << sequence;
                }
    }
}

TEST(ImageTest, GrowingInterpolatesBetweenCentres) {
    const SO<MemoryImage> source = greyImage(2, 1, {0, 200});
    const SO<Image> target(new MemoryImage(4, 2, LS_Luminance));
    ASSERT_TRUE(target->copy(source.get()));
    EXPECT_EQ(greyValues(*target), (std::vector<int>{0, 50, 150, 200, 0, 50, 150, 200}));
}

TEST(ImageTest, ScalingKeepsPlainColors) {
    const Color color(0.2, 0.4, 0.6, 0.8);
    const SO<Image> source(new MemoryImage(13, 11, LS_RGBA)),
        target(new MemoryImage(29, 3, LS_BGRA, Image::UInt16));
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 13; ++x)
            source->setColor(x, y, color);
    ASSERT_TRUE(target->copy(source.get()));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 29; ++x)
            expectNear(target->getColor(x, y), color, 1e-4);
}

TEST(ImageTest, HeightsOfFloatRastersAreScaledAsTheyAre) {
    const SO<Image> source(new MemoryImage(4, 4, LS_Luminance, Image::Float)),
        target(new MemoryImage(2, 2, LS_Luminance, Image::Float));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            *static_cast<float *>(source->pixelComponents(x, y)) = 1000.0F * x - 500.0F;
    ASSERT_TRUE(target->copy(source.get()));
    EXPECT_EQ(*static_cast<const float *>(target->pixelComponents(0, 1)), 0.0F);
    EXPECT_EQ(*static_cast<const float *>(target->pixelComponents(1, 0)), 2000.0F);
}

TEST(ImageTest, MipmapsHalveDownToOnePixel) {
    struct Case {
        int width, height;
        std::vector<std::pair<int, int>> sizes;
    };
    const Case cases[] = {{1, 1, {{1, 1}}},
                          {1, 5, {{1, 5}, {1, 2}, {1, 1}}},
                          {8, 1, {{8, 1}, {4, 1}, {2, 1}, {1, 1}}},
                          {7, 3, {{7, 3}, {3, 1}, {1, 1}}},
                          {4, 16, {{4, 16}, {2, 8}, {1, 4}, {1, 2}, {1, 1}}}};
    for (const Case & c : cases) {
        const SO<MemoryImage> image = randomImage(c.width, c.height, LS_RGB);
        const std::vector<SO<Image>> levels = image->createMipmapPyramid();
        std::vector<std::pair<int, int>> sizes;
        for (const SO<Image> & level : levels)
            sizes.emplace_back(level->width(), level->height());
        EXPECT_EQ(sizes, c.sizes);
        EXPECT_EQ(levels[0], image);
        for (const SO<Image> & level : levels)
            EXPECT_EQ(level->layerSequence(), LS_RGB);
    }
}

TEST(ImageTest, MipmapsOfOddSizesKeepTheMean) {
    const SO<MemoryImage> image = greyImage(3, 1, {0, 90, 180});
    EXPECT_EQ(greyValues(*image->createMipmapPyramid().back()), std::vector<int>{90});
    const SO<MemoryImage> five = greyImage(5, 1, {100, 0, 0, 0, 0});
    EXPECT_EQ(greyValues(*five->createMipmapPyramid()[1]), (std::vector<int>{40, 0}));
}

TEST(ImageTest, CopyToPow2GrowsToTheNextPowers) {
    const std::tuple<int, int, int> cases[] = {{1, 0, 1}, {2, 0, 2},     {3, 0, 4},
                                               {5, 0, 8}, {100, 64, 64}, {100, 100, 64}};
    for (const auto & [size, limit, expected] : cases) {
        const SO<Image> result = randomImage(size, 4, LS_RGBA)->copyToPow2(limit);
        EXPECT_EQ(result->width(), expected) << size << ", " << limit;
        EXPECT_EQ(result->height(), 4);
    }
    const SO<MemoryImage> exact = randomImage(8, 4, LS_RGB);
    const SO<Image> copy = exact->copyToPow2();
    EXPECT_TRUE(samePixels(*copy, *exact));
    EXPECT_NE(copy, exact);
}

TEST(ImageTest, FlipsTurnThePictureRound) {
    const SO<MemoryImage> image = greyImage(3, 2, {1, 2, 3, 4, 5, 6});
    image->flip(true, false);
    EXPECT_EQ(greyValues(*image), (std::vector<int>{3, 2, 1, 6, 5, 4}));
    image->flip(false, true);
    EXPECT_EQ(greyValues(*image), (std::vector<int>{6, 5, 4, 3, 2, 1}));
    image->flip(true, true);
    EXPECT_EQ(greyValues(*image), (std::vector<int>{1, 2, 3, 4, 5, 6}));
}

TEST(ImageTest, TwoFlipsAreNone) {
    for (const LayerSequence sequence : allSequences)
        for (const int type : allTypes)
            for (const int size : {1, 2, 5}) {
                const SO<MemoryImage> image = randomImage(size, size + 1, sequence, type, 8);
                const SO<Image> before = image->uncompressed(true);
                image->flip(true, true);
                for (int x = 0; x < size; ++x)
                    ASSERT_EQ(0, std::memcmp(image->pixelComponents(x, 0),
                                             before->pixelComponents(size - 1 - x, size),
                                             static_cast<std::size_t>(image->bitsPerPixel() / 8)));
                image->flip(true, true);
                EXPECT_TRUE(samePixels(*image, *before)) << sequence << ", " << type << ", " << size;
            }
}

TEST(ImageTest, CopyLayerLeavesTheOthers) {
    const SO<MemoryImage> source = randomImage(5, 3, LS_RGB);
    for (const int type : allTypes) {
        const SO<Image> target(new MemoryImage(5, 3, LS_LuminanceAlpha, type));
        ASSERT_TRUE(target->copyLayer(source.get(), 2, 1));
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 5; ++x) {
                EXPECT_NEAR(target->getColor(x, y)[3], source->getColor(x, y)[2], 1e-3);
                EXPECT_EQ(target->getColor(x, y)[0], 0.0F);
            }
    }
}

TEST(ImageTest, CopyLayerRefusesOtherSizesAndLayers) {
    RecordedReports reports;
    const SO<MemoryImage> source = randomImage(5, 3, LS_RGB);
    const SO<Image> other(new MemoryImage(5, 4, LS_RGB)), target(new MemoryImage(5, 3, LS_Luminance));
    EXPECT_FALSE(other->copyLayer(source.get(), 0, 0));
    EXPECT_EQ(reports.count(0, L"sameSize", L"images of different size"), 1u);
    EXPECT_FALSE(target->copyLayer(source.get(), 3, 0));
    EXPECT_FALSE(target->copyLayer(source.get(), 0, 1));
    EXPECT_FALSE(target->copyLayer(nullptr, 0, 0));
    EXPECT_EQ(reports.size(), 4u);
}

TEST(ImageTest, UncompressedCopiesOnlyOnDemand) {
    const SO<MemoryImage> image = randomImage(3, 3, LS_RGB);
    EXPECT_EQ(image->uncompressed(false), image);
    const SO<Image> copy = image->uncompressed(true);
    EXPECT_NE(copy, image);
    EXPECT_TRUE(samePixels(*copy, *image));
}
