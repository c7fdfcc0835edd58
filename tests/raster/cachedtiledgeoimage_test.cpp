#include <zmt/raster/cachedtiledgeoimage.h>

#include <gtest/gtest.h>

#include "raster/memorytiledgeoimage.h"
#include <nbx/image/memoryimage.h>
#include <zmt/raster/colormaskedtiledgeoimage.h>
#include <zmt/raster/geoimage.h>

#include <support/recordedreports.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;

/// Counts reads, has a hole of nothing, and can fail.
class CountingSource : public MemoryTiledGeoImage {
public:
    explicit CountingSource(NBX::Image * image) : MemoryTiledGeoImage(image, {1000.0, 50.0, 1600.0, 100.0}) {}
    unsigned granularityX() const override { return 100; }
    unsigned granularityY() const override { return 10; }
    bool failed() const override { return fails; }
    SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override {
        ++reads;
        if (fails || (x >= 100 && x < 200)) return nullptr;
        return MemoryTiledGeoImage::getImage(x, y, width, height);
    }
    mutable int reads = 0;
    bool fails = false;
};

class CachedTiledGeoImageTest : public testing::Test {
protected:
    CachedTiledGeoImageTest() {
        SO<NBX::MemoryImage> image(new NBX::MemoryImage(300, 200, NBX::LS_Luminance));
        for (int y = 0; y < 200; ++y)
            for (int x = 0; x < 300; ++x)
                *image->pixelComponentsU8(x, y) = static_cast<unsigned char>(x + 3 * y);
        source = new CountingSource(image.get());
    }

    SO<CountingSource> source;
};

TEST_F(CachedTiledGeoImageTest, TilesHaveTheSizeOfTheImagesWithinLimits) {
    const SO<CachedTiledGeoImage> cached(new CachedTiledGeoImage(source.get(), 1 << 20));
    EXPECT_EQ(100U, cached->granularityX());
    EXPECT_EQ(64U, cached->granularityY());
    EXPECT_EQ(300U, cached->pixelsX());
    EXPECT_EQ(200U, cached->pixelsY());
    EXPECT_EQ(1U, cached->bands());
    EXPECT_EQ(1600.0, cached->maxX());
}

/// Pixels are 2 by 0.25 units.
TEST_F(CachedTiledGeoImageTest, LiesWhereItsSourceLies) {
    const SO<CachedTiledGeoImage> cached(new CachedTiledGeoImage(source.get(), 1 << 20));
    const SO<ColorMaskedTiledGeoImage> masked(new ColorMaskedTiledGeoImage(source.get(), NBX::Color::black));
    for (const SO<TiledGeoImage> & image : {SO<TiledGeoImage>(cached), SO<TiledGeoImage>(masked)}) {
        EXPECT_EQ(1000.0, image->minX());
        EXPECT_EQ(50.0, image->minY());
        EXPECT_EQ(1600.0, image->maxX());
        EXPECT_EQ(100.0, image->maxY());
        EXPECT_EQ(2.0, image->pixelSizeX());
        EXPECT_EQ(0.25, image->pixelSizeY());
        EXPECT_EQ(300U, image->pixelsX());
        EXPECT_EQ(200U, image->pixelsY());
    }
    EXPECT_EQ(10U, masked->granularityY());
}

TEST_F(CachedTiledGeoImageTest, DeliversTheSamePixels) {
    const SO<CachedTiledGeoImage> cached(new CachedTiledGeoImage(source.get(), 1 << 20));
    const SO<NBX::Image> image = cached->getImage(-5, 50, 120, 100);
    ASSERT_TRUE(image);
    ASSERT_EQ(120, image->width());
    ASSERT_EQ(100, image->height());
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 120; ++x) {
            const int column = x - 5, line = y + 50;
            const bool isThere = column >= 0 && column < 100;
            ASSERT_EQ(isThere ? (column + 3 * line) & 255 : 0, *image->pixelComponentsU8(x, y))
                << x << " " << y;
        }
    EXPECT_FALSE(cached->getImage(300, 0, 10, 10));
    EXPECT_FALSE(cached->getImage(-10, 0, 10, 10));
    EXPECT_FALSE(cached->getImage(0, 0, 0, 10));
    EXPECT_FALSE(cached->getImage(110, 0, 10, 10)) << "nothing is stored there";
}

TEST_F(CachedTiledGeoImageTest, ReadsEachTileOnce) {
    const SO<CachedTiledGeoImage> cached(new CachedTiledGeoImage(source.get(), 1 << 20));
    for (int i = 0; i < 3; ++i)
        cached->getImage(0, 0, 300, 200);
    EXPECT_EQ(12, source->reads) << "empty tiles are remembered as well";
    cached->clearCache();
    EXPECT_EQ(0U, cached->usedBytes());
    cached->getImage(0, 0, 1, 1);
    EXPECT_EQ(13, source->reads);
}

TEST_F(CachedTiledGeoImageTest, StaysWithinItsBudgetAndForgetsTheOldest) {
    constexpr std::uint64_t tile = 100 * 64;
    const SO<CachedTiledGeoImage> cached(new CachedTiledGeoImage(source.get(), 2 * tile));
    EXPECT_EQ(2 * tile, cached->maxBytes());
    cached->getImage(0, 0, 1, 1);
    cached->getImage(0, 64, 1, 1);
    cached->getImage(0, 0, 1, 1);
    cached->getImage(0, 128, 1, 1);
    EXPECT_EQ(2 * tile, cached->usedBytes());
    EXPECT_EQ(3, source->reads);
    cached->getImage(0, 0, 1, 1);
    EXPECT_EQ(3, source->reads);
    cached->getImage(0, 64, 1, 1);
    EXPECT_EQ(4, source->reads);
}

TEST_F(CachedTiledGeoImageTest, NoBudgetKeepsNothing) {
    const SO<CachedTiledGeoImage> cached(new CachedTiledGeoImage(source.get(), 0));
    EXPECT_TRUE(cached->getImage(0, 0, 1, 1));
    EXPECT_TRUE(cached->getImage(0, 0, 1, 1));
    EXPECT_EQ(2, source->reads);
    EXPECT_EQ(0U, cached->usedBytes());
}

TEST_F(CachedTiledGeoImageTest, AFailureIsNotRemembered) {
    const SO<CachedTiledGeoImage> cached(new CachedTiledGeoImage(source.get(), 1 << 20));
    source->fails = true;
    EXPECT_FALSE(cached->getImage(0, 0, 10, 10));
    EXPECT_TRUE(cached->failed());
    source->fails = false;
    EXPECT_TRUE(cached->getImage(0, 0, 10, 10));
}

TEST_F(CachedTiledGeoImageTest, NoImageIsReported) {
    RecordedReports reports;
    const SO<CachedTiledGeoImage> none(new CachedTiledGeoImage(nullptr, 100));
    EXPECT_EQ(1U, reports.count(0, L"image", L"no image"));
    EXPECT_FALSE(none->getImage(0, 0, 10, 10));
    EXPECT_FALSE(none->getGeoImage(0, 0, 1, 1, 10, 10));
    EXPECT_TRUE(none->pixelRect(-1, -1, 1, 1).isEmpty());
    const SO<ColorMaskedTiledGeoImage> masked(new ColorMaskedTiledGeoImage(nullptr, NBX::Color::black));
    EXPECT_EQ(2U, reports.count(0, L"image", L"no image"));
    EXPECT_FALSE(masked->getImage(0, 0, 10, 10));
}

TEST_F(CachedTiledGeoImageTest, PixelsOfTheMaskColourAreTransparent) {
    const NBX::Color seventh(7.0 / 255.0);
    const SO<ColorMaskedTiledGeoImage> masked(new ColorMaskedTiledGeoImage(source.get(), seventh));
    EXPECT_EQ(4U, masked->bands());
    EXPECT_EQ(100U, masked->granularityX());
    const SO<CachedTiledGeoImage> cached(new CachedTiledGeoImage(masked.get(), 1 << 20));
    for (const SO<TiledGeoImage> & image : {SO<TiledGeoImage>(masked), SO<TiledGeoImage>(cached)}) {
        const SO<NBX::Image> pixels = image->getImage(0, 0, 10, 2);
        ASSERT_TRUE(pixels);
        ASSERT_EQ(NBX::LS_RGBA, pixels->layerSequence());
        EXPECT_EQ(255, pixels->pixelComponentsU8(6, 0)[3]);
        EXPECT_EQ(6, pixels->pixelComponentsU8(6, 0)[1]);
        EXPECT_EQ(0, pixels->pixelComponentsU8(7, 0)[3]);
        EXPECT_EQ(0, pixels->pixelComponentsU8(4, 1)[3]);
    }
    EXPECT_FALSE(masked->getImage(110, 0, 10, 10));
    source->fails = true;
    EXPECT_TRUE(masked->failed());
}

} // namespace
