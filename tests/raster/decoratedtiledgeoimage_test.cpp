#include <zmt/raster/decoratedtiledgeoimage.h>

#include <gtest/gtest.h>

#include "raster/memorytiledgeoimage.h"
#include <nbx/image/memoryimage.h>
#include <zmt/raster/cachedtiledgeoimage.h>
#include <zmt/raster/colormaskedtiledgeoimage.h>

#include <support/recordedreports.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;

/// Differs in all that can be asked from what an image says by itself.
class CoarseSource : public MemoryTiledGeoImage {
public:
    explicit CoarseSource(NBX::Image * image) : MemoryTiledGeoImage(image, {5.0, 6.0, 45.0, 36.0}) {}
    unsigned granularityX() const override { return 100; }
    unsigned granularityY() const override { return 2000; }
    bool failed() const override { return fails; }
    bool fails = false;
};

SO<CoarseSource> newSource() {
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(20, 10, NBX::LS_LuminanceAlpha));
    image->pixelComponentsU8(3, 4)[0] = 77;
    return new CoarseSource(image.get());
}

void expectSamePlace(const TiledGeoImage & expected, const TiledGeoImage & image) {
    EXPECT_EQ(expected.minX(), image.minX());
    EXPECT_EQ(expected.minY(), image.minY());
    EXPECT_EQ(expected.pixelSizeX(), image.pixelSizeX());
    EXPECT_EQ(expected.pixelSizeY(), image.pixelSizeY());
    EXPECT_EQ(expected.pixelsX(), image.pixelsX());
    EXPECT_EQ(expected.pixelsY(), image.pixelsY());
    EXPECT_EQ(expected.failed(), image.failed());
}

TEST(DecoratedTiledGeoImage, AsksTheImageForEverything) {
    const SO<CoarseSource> source = newSource();
    const SO<DecoratedTiledGeoImage> decorated(new DecoratedTiledGeoImage(source.get()));
    EXPECT_EQ(source.get(), decorated->image().get());
    for (const bool fails : {false, true}) {
        source->fails = fails;
        expectSamePlace(*source, *decorated);
    }
    EXPECT_EQ(2U, decorated->bands());
    EXPECT_EQ(100U, decorated->granularityX());
    EXPECT_EQ(2000U, decorated->granularityY());
    EXPECT_EQ(NBX::LS_LuminanceAlpha, decorated->createEmptyImage(2, 2)->layerSequence());
    EXPECT_EQ(77, decorated->getImage(3, 4, 1, 1)->pixelComponentsU8(0, 0)[0]);
    EXPECT_FALSE(decorated->getImage(20, 0, 1, 1));
}

TEST(DecoratedTiledGeoImage, SubclassesChangeOnlyWhatTheyAreAbout) {
    const SO<CoarseSource> source = newSource();
    const SO<TiledGeoImage> cached(new CachedTiledGeoImage(source.get(), 1 << 20));
    const SO<TiledGeoImage> masked(new ColorMaskedTiledGeoImage(source.get(), NBX::Color::black));
    for (const bool fails : {false, true}) {
        source->fails = fails;
        expectSamePlace(*source, *cached);
        expectSamePlace(*source, *masked);
    }
    EXPECT_EQ(2U, cached->bands());
    EXPECT_EQ(100U, cached->granularityX());
    EXPECT_EQ(1024U, cached->granularityY());
    EXPECT_EQ(NBX::LS_LuminanceAlpha, cached->createEmptyImage(2, 2)->layerSequence());
    EXPECT_EQ(4U, masked->bands());
    EXPECT_EQ(2000U, masked->granularityY());
    EXPECT_EQ(NBX::LS_RGBA, masked->createEmptyImage(2, 2)->layerSequence());
}

TEST(DecoratedTiledGeoImage, WithoutAnImageThereAreNoPixels) {
    const RecordedReports reports;
    const SO<TiledGeoImage> decorated(new DecoratedTiledGeoImage(nullptr));
    EXPECT_EQ(1U, reports.size());
    EXPECT_EQ(1U, decorated->bands());
    EXPECT_EQ(0U, decorated->pixelsX());
    EXPECT_EQ(0U, decorated->pixelsY());
    EXPECT_EQ(0.0, decorated->maxX());
    EXPECT_EQ(1.0, decorated->pixelSizeX());
    EXPECT_EQ(1.0, decorated->pixelSizeY());
    EXPECT_EQ(1U, decorated->granularityX());
    EXPECT_EQ(1U, decorated->granularityY());
    EXPECT_FALSE(decorated->failed());
    EXPECT_FALSE(decorated->getImage(0, 0, 1, 1));
    EXPECT_EQ(NBX::LS_Luminance, decorated->createEmptyImage(2, 2)->layerSequence());
}

} // namespace
