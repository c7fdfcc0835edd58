#include <zmt/raster/pixelblocks.h>

#include <cstdint>
#include <random>

#include <gtest/gtest.h>

#include "raster/memorytiledgeoimage.h"
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>

#include <support/recordedreports.h>

namespace {

using namespace ZMT::RASTER;
using NBX::MemoryImage;
using NBX::SO;

SO<MemoryImage> image(int width, int height, NBX::LayerSequence layers, int type = NBX::Image::UInt8) {
    return new MemoryImage(width, height, layers, type);
}

SO<MemoryImage> gray(int width, int height, const std::vector<int> & values) {
    SO<MemoryImage> result = image(width, height, NBX::LS_Luminance);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            *result->pixelComponentsU8(x, y) = static_cast<unsigned char>(values[y * width + x]);
    return result;
}

std::vector<int> bytes(NBX::Image & image) {
    std::vector<int> result;
    for (int y = 0; y < image.height(); ++y)
        for (int i = 0; i < image.width() * image.numberOfLayers(); ++i)
            result.push_back(image.lineComponentsU8(y)[i]);
    return result;
}

TEST(PixelBlocksTest, PasteLeavesOutWhatReachesBeyond) {
    const SO<MemoryImage> source = gray(2, 2, {1, 2, 3, 4});
    const SO<MemoryImage> target = gray(2, 2, {9, 9, 9, 9});
    PixelBlocks::paste(*source, 1, -1, *target);
    EXPECT_EQ((std::vector<int>{9, 3, 9, 9}), bytes(*target));
    PixelBlocks::paste(*source, 5, 0, *target);
    PixelBlocks::paste(*source, 0, -9, *target);
    EXPECT_EQ((std::vector<int>{9, 3, 9, 9}), bytes(*target));
}

TEST(PixelBlocksTest, ImagesOfDifferentFormatsAreReported) {
    RecordedReports reports;
    const SO<MemoryImage> target = image(2, 2, NBX::LS_RGBA);
    PixelBlocks::paste(*gray(1, 1, {5}), 0, 0, *target);
    PixelBlocks::reduce(*gray(1, 1, {5}), {0, 0, 1, 1}, *target, 0, 0, 1, 1);
    EXPECT_EQ(2U, reports.count(0, L"sameFormat(source, target)", L"images of different formats"));
    PixelBlocks::reduce(*target, {0, 0, 1, 1}, *target, 1, 1, 2, 1);
    EXPECT_EQ(1U, reports.count(0, L"fits", L"the rectangle is not in the image"));
}

TEST(PixelBlocksTest, HalvingRoundsToTheNearest) {
    const SO<MemoryImage> target = image(2, 1, NBX::LS_Luminance);
    PixelBlocks::reduce(*gray(4, 2, {0, 1, 10, 20, 1, 0, 30, 40}), {0, 0, 4, 2}, *target, 0, 0, 2, 1);
    EXPECT_EQ((std::vector<int>{1, 25}), bytes(*target));
}

TEST(PixelBlocksTest, OddSizesAreWeightedByArea) {
    const SO<MemoryImage> target = image(2, 1, NBX::LS_Luminance);
    PixelBlocks::reduce(*gray(3, 1, {30, 60, 90}), {0, 0, 3, 1}, *target, 0, 0, 2, 1);
    EXPECT_EQ((std::vector<int>{40, 80}), bytes(*target));
}

TEST(PixelBlocksTest, TransparentPixelsDoNotColourTheirNeighbours) {
    for (const int width : {2, 3}) {
        const SO<MemoryImage> source = image(width, 2, NBX::LS_RGBA);
        for (int x = 0; x < width; ++x) {
            source->setColor(x, 0, NBX::Color(1.0, 0.0, 0.0));
            source->setColor(x, 1, NBX::Color(0.0, 1.0, 0.0, 0.0));
        }
        const SO<MemoryImage> target = image(1, 1, NBX::LS_RGBA);
        PixelBlocks::reduce(*source, {0, 0, static_cast<double>(width), 2}, *target, 0, 0, 1, 1);
        EXPECT_EQ((std::vector<int>{255, 0, 0, 128}), bytes(*target)) << width;
    }
}

TEST(PixelBlocksTest, WhollyTransparentStaysBlank) {
    const SO<MemoryImage> source = image(2, 2, NBX::LS_LuminanceAlpha);
    for (int i = 0; i < 4; ++i)
        *source->pixelComponentsU8(i % 2, i / 2, 0) = 200;
    const SO<MemoryImage> target = image(1, 1, NBX::LS_LuminanceAlpha);
    PixelBlocks::reduce(*source, {0, 0, 2, 2}, *target, 0, 0, 1, 1);
    EXPECT_EQ((std::vector<int>{0, 0}), bytes(*target));
}

TEST(PixelBlocksTest, WiderTypesAreAveraged) {
    for (const int type : {NBX::Image::UInt16, NBX::Image::Half, NBX::Image::Float}) {
        const SO<MemoryImage> source = image(2, 2, NBX::LS_RGB, type);
        source->setColor(1, 0, NBX::Color(1.0, 0.5, 0.0));
        const SO<MemoryImage> target = image(1, 1, NBX::LS_RGB, type);
        PixelBlocks::reduce(*source, {0, 0, 2, 2}, *target, 0, 0, 1, 1);
        EXPECT_NEAR(0.25, target->getColor(0, 0)[0], 1e-3) << type;
        EXPECT_NEAR(0.125, target->getColor(0, 0)[1], 1e-3) << type;
    }
}

TEST(PixelBlocksTest, FastHalvingEqualsTheGeneralOne) {
    std::mt19937 random(7);
    for (const NBX::LayerSequence layers :
         {NBX::LS_Luminance, NBX::LS_LuminanceAlpha, NBX::LS_RGB, NBX::LS_RGBA}) {
        const SO<MemoryImage> source = image(16, 16, layers);
        const SO<MemoryImage> wide = image(16, 16, layers, NBX::Image::Float);
        for (int y = 0; y < 16; ++y)
            for (int i = 0; i < 16 * source->numberOfLayers(); ++i)
                source->lineComponentsU8(y)[i] = static_cast<unsigned char>(random() % 3 ? random() : 255);
        wide->copy(source.get());
        const SO<MemoryImage> fast = image(8, 8, layers), exact = image(8, 8, layers, NBX::Image::Float);
        PixelBlocks::reduce(*source, {0, 0, 16, 16}, *fast, 0, 0, 8, 8);
        PixelBlocks::reduce(*wide, {0, 0, 16, 16}, *exact, 0, 0, 8, 8);
        for (int y = 0; y < 8; ++y)
            for (int i = 0; i < 8 * fast->numberOfLayers(); ++i)
                EXPECT_NEAR(static_cast<const float *>(exact->lineComponents(y))[i] * 255.0F,
                            fast->lineComponentsU8(y)[i], 0.51F);
    }
}

/// A picture that counts what is read at once.
class CountingImage : public MemoryTiledGeoImage {
public:
    CountingImage(NBX::Image * image, unsigned granularity)
        : MemoryTiledGeoImage(image, {0.0, 0.0, 1.0, 1.0}), granularity_(granularity) {}
    unsigned granularityX() const override { return granularity_; }
    SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override {
        largest = std::max<std::uint64_t>(largest, static_cast<std::uint64_t>(width) * height);
        widest = std::max(widest, width);
        return MemoryTiledGeoImage::getImage(x, y, width, height);
    }
    mutable std::uint64_t largest = 0;
    mutable unsigned widest = 0;

private:
    unsigned granularity_;
};

TEST(PixelBlocksTest, PiecesMakeTheSamePictureAsTheWhole) {
    const SO<MemoryImage> source = image(3001, 2003, NBX::LS_Luminance);
    for (int y = 0; y < source->height(); ++y)
        for (int x = 0; x < source->width(); ++x)
            *source->pixelComponentsU8(x, y) = static_cast<unsigned char>((x * 7 + y * 13) % 251);
    const SO<MemoryImage> whole = image(500, 301, NBX::LS_Luminance);
    PixelBlocks::reduce(*source, {0, 0, 3001, 2003}, *whole, 0, 0, 500, 301);
    for (const unsigned granularity : {1U, 3001U}) {
        const SO<CountingImage> tiled(new CountingImage(source.get(), granularity));
        const SO<NBX::Image> pieces = PixelBlocks::read(*tiled, {0, 0, 3001, 2003}, 500, 301);
        ASSERT_TRUE(pieces);
        EXPECT_LE(tiled->largest, 1100U * 1100U);
        EXPECT_EQ(granularity == 1 ? 1U : 3001U, tiled->widest > 1030 ? 3001U : 1U);
        for (int y = 0; y < 301; ++y)
            for (int x = 0; x < 500; ++x)
                ASSERT_NEAR(*whole->pixelComponentsU8(x, y), *pieces->pixelComponentsU8(x, y), 1);
    }
}

TEST(PixelBlocksTest, OnePixelForHugeAreasIsMadeOfItsMiddle) {
    const SO<MemoryImage> source = image(5000, 5000, NBX::LS_Luminance);
    for (int y = 2000; y < 3000; ++y)
        std::fill_n(source->lineComponentsU8(y), 5000, 100);
    const SO<CountingImage> tiled(new CountingImage(source.get(), 1));
    const SO<NBX::Image> one = PixelBlocks::read(*tiled, {0, 0, 5000, 5000}, 1, 1);
    ASSERT_TRUE(one);
    EXPECT_NEAR(97, *one->pixelComponentsU8(0, 0), 3);
    EXPECT_LE(tiled->largest, 1100U * 1100U);
}

TEST(PixelBlocksTest, OpaqueColoursAreHalvedAsWithoutAlpha) {
    std::mt19937 random(7);
    const SO<MemoryImage> rgb = image(64, 32, NBX::LS_RGB), rgba = image(64, 32, NBX::LS_RGBA);
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 64; ++x) {
            for (int layer = 0; layer < 3; ++layer)
                rgb->pixelComponentsU8(x, y)[layer] = rgba->pixelComponentsU8(x, y)[layer] =
                    static_cast<unsigned char>(random());
            rgba->pixelComponentsU8(x, y)[3] = 255;
        }
    const SO<MemoryImage> half = image(32, 16, NBX::LS_RGB), opaque = image(32, 16, NBX::LS_RGBA);
    PixelBlocks::reduce(*rgb, {0, 0, 64, 32}, *half, 0, 0, 32, 16);
    PixelBlocks::reduce(*rgba, {0, 0, 64, 32}, *opaque, 0, 0, 32, 16);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 32; ++x) {
            for (int layer = 0; layer < 3; ++layer)
                ASSERT_EQ(half->pixelComponentsU8(x, y)[layer], opaque->pixelComponentsU8(x, y)[layer]);
            ASSERT_EQ(255, opaque->pixelComponentsU8(x, y)[3]);
        }
}

TEST(PixelBlocksTest, RectanglesThatReachBeyondTheImageAreReadInside) {
    const SO<MemoryImage> source = gray(3, 2, {1, 2, 3, 4, 5, 6});
    const SO<MemoryTiledGeoImage> tiled(new MemoryTiledGeoImage(source.get(), {0.0, 0.0, 3.0, 2.0}));
    std::vector<PixelRect> asked;
    const auto read = [&](const PixelRect & rect) {
        asked.push_back(rect);
        return tiled->getImage(int(rect.x), int(rect.y), unsigned(rect.width), unsigned(rect.height));
    };
    const SO<NBX::Image> image = PixelBlocks::readInside(*tiled, 1, -1, 4, 2, read);
    ASSERT_TRUE(image);
    ASSERT_EQ(4, image->width());
    ASSERT_EQ(2, image->height());
    EXPECT_EQ(0, *image->pixelComponentsU8(0, 0));
    EXPECT_EQ(2, *image->pixelComponentsU8(0, 1));
    EXPECT_EQ(3, *image->pixelComponentsU8(1, 1));
    EXPECT_EQ(0, *image->pixelComponentsU8(2, 1));
    ASSERT_EQ(1U, asked.size());
    EXPECT_EQ(1, asked[0].x);
    EXPECT_EQ(0, asked[0].y);
    EXPECT_EQ(2U, asked[0].width);
    EXPECT_EQ(1U, asked[0].height);
    for (const auto & [x, y] : {std::pair(3, 0), std::pair(-4, 0), std::pair(0, 2), std::pair(0, -2)})
        EXPECT_FALSE(PixelBlocks::readInside(*tiled, x, y, 4, 2, read)) << x << " " << y;
    EXPECT_FALSE(PixelBlocks::readInside(*tiled, 0, 0, 0, 2, read));
    EXPECT_FALSE(PixelBlocks::readInside(*tiled, 0, 0, 1U << 31, 1U << 31, read));
    EXPECT_EQ(1U, asked.size());
    EXPECT_FALSE(PixelBlocks::readInside(*tiled, 0, 0, 4, 2, [](const PixelRect &) { return nullptr; }));
}

TEST(PixelBlocksTest, ImagesArePutTogetherFromTiles) {
    const SO<MemoryImage> source = gray(3, 2, {1, 2, 3, 4, 5, 6});
    const SO<MemoryTiledGeoImage> tiled(new MemoryTiledGeoImage(source.get(), {0.0, 0.0, 3.0, 2.0}));
    std::int64_t hole = -1, bad = -1;
    const auto read = [&](std::int64_t column, std::int64_t row, SO<NBX::Image> & tile) {
        const std::int64_t number = 2 * row + column;
        if (number != hole) tile = tiled->getImage(int(2 * column), int(row), 2, 1);
        return number != bad;
    };
    const auto values = [&](int x, int y, unsigned width, unsigned height) {
        const SO<NBX::Image> image = PixelBlocks::readTiles(*tiled, x, y, width, height, 2, 1, read);
        std::vector<int> result;
        for (int j = 0; image && j < image->height(); ++j)
            for (int i = 0; i < image->width(); ++i)
                result.push_back(*image->pixelComponentsU8(i, j));
        return result;
    };
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4, 5, 6}), values(0, 0, 3, 2));
    EXPECT_EQ((std::vector<int>{0, 0, 0, 2, 3, 0}), values(1, -1, 3, 2));
    EXPECT_EQ((std::vector<int>{}), values(3, 0, 3, 2));
    hole = 1;
    EXPECT_EQ((std::vector<int>{1, 2, 0, 4, 5, 6}), values(0, 0, 3, 2));
    EXPECT_EQ((std::vector<int>{}), values(2, 0, 1, 1)) << "nothing is stored there";
    bad = 2;
    EXPECT_EQ((std::vector<int>{}), values(0, 0, 3, 2)) << "a tile cannot be read";
    EXPECT_EQ((std::vector<int>{1}), values(0, 0, 1, 1));
}

TEST(PixelBlocksTest, SizesThatNoImageCanHave) {
    EXPECT_FALSE(PixelBlocks::newImage(1ULL << 30, 1ULL << 30, NBX::LS_Luminance, NBX::Image::UInt8));
    EXPECT_FALSE(PixelBlocks::newImage(0, 5, NBX::LS_Luminance, NBX::Image::UInt8));
    EXPECT_EQ(3U, PixelBlocks::halved(5));
    EXPECT_EQ(1U, PixelBlocks::halved(1));
    EXPECT_EQ(1U << 31, PixelBlocks::halved(~0U));
    EXPECT_TRUE(PixelBlocks::isImageSize(1, 1, 4));
    EXPECT_FALSE(PixelBlocks::isImageSize(0, 1, 4));
    EXPECT_FALSE(PixelBlocks::isImageSize(1ULL << 31, 1, 1));
    EXPECT_FALSE(PixelBlocks::isImageSize(1ULL << 30, 1ULL << 30, 1));
}

} // namespace
