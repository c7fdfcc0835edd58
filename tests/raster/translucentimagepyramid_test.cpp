#include <zmt/raster/translucentimagepyramid.h>

#include <cmath>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>
#include <zmt/raster/tiledgeoimage.h>

#include <support/recordedreports.h>
#include <support/roundtrip.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;

/// 6 by 4 pixels; alpha grows to the east, where there is one.
SO<TiledGeoImagePyramid> newSource(NBX::LayerSequence layers) {
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(6, 4, layers));
    const int count = image->numberOfLayers();
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            for (int l = 0; l < count; ++l)
                image->pixelComponentsU8(x, y)[l] = static_cast<std::uint8_t>(l == 3 ? x * 51 : 10 * y + l);
    return new MemoryTiledGeoImagePyramid(image.get(), NBX::Bounds({1.0, 2.0, 0.0}, {13.0, 6.0, 0.0}));
}

TEST(TranslucentImagePyramid, AlphaIsScaledAndColoursStay) {
    for (const NBX::LayerSequence layers : {NBX::LS_RGB, NBX::LS_RGBA, NBX::LS_Luminance})
        for (const double opacity : {0.0, 0.25, 0.6, 1.0}) {
            const auto source = newSource(layers);
            const SO<TiledGeoImagePyramid> pyramid(new TranslucentImagePyramid(source.get(), opacity));
            const SO<TiledGeoImage> level = pyramid->overview(0);
            EXPECT_EQ(4U, level->bands());
            EXPECT_EQ(NBX::LS_RGBA, level->createEmptyImage(1, 1)->layerSequence());
            const SO<NBX::Image> image = level->getImage(0, 0, 6, 4);
            ASSERT_EQ(NBX::LS_RGBA, image->layerSequence());
            for (int x = 0; x < 6; ++x) {
                const unsigned char * pixel = image->pixelComponentsU8(x, 3);
                const double alpha = layers == NBX::LS_RGBA ? x * 51 : 255;
                EXPECT_EQ(std::lround(opacity * alpha), pixel[3]) << layers << " " << opacity;
                EXPECT_EQ(30, pixel[0]);
                EXPECT_EQ(layers == NBX::LS_Luminance ? 30 : 32, pixel[2]);
            }
        }
}

TEST(TranslucentImagePyramid, LiesWhereItsSourceLies) {
    const auto source = newSource(NBX::LS_RGB);
    const SO<TiledGeoImagePyramid> pyramid(new TranslucentImagePyramid(source.get(), 0.5));
    EXPECT_EQ(1.0, pyramid->minX());
    EXPECT_EQ(2.0, pyramid->minY());
    EXPECT_EQ(13.0, pyramid->maxX());
    EXPECT_EQ(6.0, pyramid->maxY());
    ASSERT_EQ(source->overviews(), pyramid->overviews());
    for (unsigned i = 0; i < pyramid->overviews(); ++i) {
        EXPECT_EQ(source->overview(i)->pixelsX(), pyramid->overview(i)->pixelsX());
        EXPECT_EQ(source->overview(i)->pixelsY(), pyramid->overview(i)->pixelsY());
    }
    EXPECT_FALSE(pyramid->overview(0)->getImage(6, 0, 1, 1));
}

TEST(TranslucentImagePyramid, BadParametersAreReported) {
    RecordedReports reports;
    const SO<TranslucentImagePyramid> none(new TranslucentImagePyramid(nullptr, 0.5));
    EXPECT_EQ(1U, reports.size());
    EXPECT_EQ(0U, none->overviews());
    EXPECT_FALSE(none->overview(0));
    const auto source = newSource(NBX::LS_RGB);
    EXPECT_EQ(1.0, SO<TranslucentImagePyramid>(new TranslucentImagePyramid(source.get(), 1.5))->opacity());
    EXPECT_EQ(0.0, SO<TranslucentImagePyramid>(new TranslucentImagePyramid(source.get(), -0.1))->opacity());
    EXPECT_EQ(0.0, SO<TranslucentImagePyramid>(new TranslucentImagePyramid(source.get(), NAN))->opacity());
    EXPECT_EQ(4U, reports.size());
}

TEST(TranslucentImagePyramid, IsStored) {
    const auto source = newSource(NBX::LS_RGB);
    const SO<TranslucentImagePyramid> pyramid(new TranslucentImagePyramid(source.get(), 0.25));
    const auto copy = roundTrip(*pyramid);
    ASSERT_TRUE(copy);
    EXPECT_EQ(0.25, copy->opacity());
    EXPECT_EQ(64, copy->overview(0)->getImage(2, 1, 1, 1)->pixelComponentsU8(0, 0)[3]);
}

} // namespace
