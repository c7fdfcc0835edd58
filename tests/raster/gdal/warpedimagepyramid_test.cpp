#include <zmt/raster/gdal/warpedimagepyramid.h>

#include <cmath>
#include <cstdlib>

#include "geotiff.h"

#include <nbx/image/memoryimage.h>
#include <nbx/object/exception.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>
#include <zmt/raster/tiledgeoimage.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;

/// In degrees, at the edge of the zone, where north is not up.
constexpr double westDegrees = 84.1, south = 27.9, degree = 0.0005;

class WarpedImagePyramidTest : public testing::Test {
protected:
    static std::string wktOf(const char * name) {
        OGRSpatialReference system;
        system.SetFromUserInput(name);
        char * text = nullptr;
        system.exportToWkt(&text);
        const std::string wkt = text;
        CPLFree(text);
        return wkt;
    }

    /// Waves of red and green, in degrees.
    std::string writeWaves(int width, int height) const {
        TiffContent content{.width = width, .height = height, .bands = 3, .type = GDT_Byte};
        content.geoTransform = {westDegrees, degree, 0.0, south + height * degree, 0.0, -degree};
        content.system = "EPSG:4326";
        for (int band = 0; band < 3; ++band)
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    content.values.push_back(std::round(128 + 90 * std::sin((band == 1 ? y : x) * 0.1)));
        return writeTiff(directory.file("waves.tif"), content);
    }

    SO<TiledGeoImagePyramid> warped(const std::string & path) const {
        return WarpedImagePyramid::create(new ImageFilePyramid(path), degrees, metres, path);
    }

    static SO<NBX::Image> pixels(const TiledGeoImagePyramid & pyramid, unsigned level) {
        const SO<TiledGeoImage> image = pyramid.overview(level);
        return image->getImage(0, 0, static_cast<unsigned>(image->pixelsX()),
                               static_cast<unsigned>(image->pixelsY()));
    }

    /// False for a pixel at the outer edge, which a rounding of its place makes opaque or transparent.
    static bool isAlike(const unsigned char * a, const unsigned char * b) {
        if (std::abs(a[3] - b[3]) > 3) return false;
        for (int layer = 0; layer < 3 && a[3] > 32; ++layer)
            EXPECT_NEAR(a[layer], b[layer], 3);
        return true;
    }

    TestDirectory directory;
    std::string degrees = wktOf("EPSG:4326"), metres = wktOf("EPSG:32645");
};

/// The other way to the same picture: the library reads the file as if it were in the wanted system.
TEST_F(WarpedImagePyramidTest, ShowsWhatAWarpedFileShows) {
    const std::string path = writeWaves(300, 200);
    const SO<ImageFilePyramid> expected(new ImageFilePyramid(path, metres));
    const SO<TiledGeoImagePyramid> found = warped(path);
    ASSERT_TRUE(found);
    const double pixel = expected->overview(0)->pixelSizeX();
    EXPECT_NEAR(expected->minX(), found->minX(), 0.01 * pixel);
    EXPECT_NEAR(expected->minY(), found->minY(), 0.6 * pixel);
    EXPECT_NEAR(expected->maxX(), found->maxX(), 0.6 * pixel);
    EXPECT_NEAR(expected->maxY(), found->maxY(), 0.01 * pixel);
    const SO<NBX::Image> a = pixels(*expected, 0), b = pixels(*found, 0);
    ASSERT_TRUE(a && b);
    ASSERT_EQ(a->width(), b->width());
    ASSERT_EQ(a->height(), b->height());
    EXPECT_EQ(NBX::LS_RGBA, b->layerSequence());
    int opaque = 0, transparent = 0;
    for (int y = 2; y < a->height() - 2; ++y)
        for (int x = 2; x < a->width() - 2; ++x) {
            const unsigned char * p = a->pixelComponentsU8(x, y);
            const unsigned char * q = b->pixelComponentsU8(x, y);
            transparent += p[3] == 0 && q[3] == 0;
            if (p[3] != 255 || q[3] != 255) continue;
            ++opaque;
            for (int layer = 0; layer < 3; ++layer)
                ASSERT_NEAR(p[layer], q[layer], 6) << x << ", " << y;
        }
    EXPECT_GT(opaque, 50000);
    EXPECT_GT(transparent, 100) << "the corners of a turned rectangle";
}

TEST_F(WarpedImagePyramidTest, PiecesShowTheSameAsTheWhole) {
    const SO<TiledGeoImagePyramid> pyramid = warped(writeWaves(300, 200));
    for (unsigned level = 0; level < 2; ++level) {
        const SO<NBX::Image> whole = pixels(*pyramid, level);
        const SO<TiledGeoImage> image = pyramid->overview(level);
        int unlike = 0;
        for (int y = 0; y < whole->height(); y += 64)
            for (int x = 0; x < whole->width(); x += 64) {
                const SO<NBX::Image> piece = image->getImage(x, y, 64, 64);
                ASSERT_TRUE(piece);
                for (int j = 0; j < 64 && y + j < whole->height(); ++j)
                    for (int i = 0; i < 64 && x + i < whole->width(); ++i)
                        unlike +=
                            !isAlike(whole->pixelComponentsU8(x + i, y + j), piece->pixelComponentsU8(i, j));
            }
        EXPECT_LT(unlike, whole->width() / 10) << level;
    }
}

TEST_F(WarpedImagePyramidTest, LevelsShrinkLikeThoseOfTheSource) {
    const std::string path = writeWaves(300, 200);
    const SO<ImageFilePyramid> source(new ImageFilePyramid(path));
    const SO<TiledGeoImagePyramid> pyramid = warped(path);
    ASSERT_EQ(source->overviews(), pyramid->overviews());
    for (unsigned i = 0; i + 1 < pyramid->overviews(); ++i) {
        EXPECT_NEAR(2.0 * pyramid->overview(i)->pixelSizeX(), pyramid->overview(i + 1)->pixelSizeX(),
                    0.8 * pyramid->overview(i)->pixelSizeX())
            << i;
        EXPECT_NEAR(pyramid->maxX(), pyramid->overview(i)->maxX(), 1e-6);
        EXPECT_TRUE(pixels(*pyramid, i)) << i;
    }
}

TEST_F(WarpedImagePyramidTest, WhatNeedsNoWarpingIsGivenBack) {
    const SO<TiledGeoImagePyramid> source(new ImageFilePyramid(writeWaves(8, 8)));
    EXPECT_EQ(source, WarpedImagePyramid::create(source, degrees, wktOf("OGC:CRS84"), "a"));
    EXPECT_EQ(source, WarpedImagePyramid::create(source, degrees, "", "a"));
    EXPECT_EQ(source, WarpedImagePyramid::create(source, "", metres, "a"));
    EXPECT_NE(source, WarpedImagePyramid::create(source, degrees, metres, "a"));
}

TEST_F(WarpedImagePyramidTest, ASystemThatDoesNotFitIsTold) {
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(16, 16, NBX::LS_RGB));
    const SO<TiledGeoImagePyramid> source(
        new MemoryTiledGeoImagePyramid(image.get(), NBX::Bounds({5e5, 3e6, 0.0}, {5.1e5, 3.1e6, 0.0})));
    try {
        WarpedImagePyramid::create(source, degrees, metres, "photo.ztp");
        ADD_FAILURE();
    } catch (const NBX::InputException & error) {
        EXPECT_NE(std::string::npos, std::string(error.what()).find("photo.ztp")) << error.what();
    }
}

/// Gray, with alpha, and of 16 bits.
TEST_F(WarpedImagePyramidTest, ImagesOfAllKindsAreColours) {
    const struct {
        NBX::LayerSequence layers;
        int type;
    } kinds[] = {{NBX::LS_Luminance, NBX::Image::UInt8},
                 {NBX::LS_LuminanceAlpha, NBX::Image::UInt16},
                 {NBX::LS_RGBA, NBX::Image::UInt16},
                 {NBX::LS_RGB, NBX::Image::UInt8}};
    for (const auto & kind : kinds) {
        const SO<NBX::MemoryImage> image(new NBX::MemoryImage(40, 40, kind.layers, kind.type));
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 40; ++x)
                image->setColor(x, y, NBX::Color(0.6, 0.6, 0.6));
        const SO<TiledGeoImagePyramid> source(new MemoryTiledGeoImagePyramid(
            image.get(), NBX::Bounds({westDegrees, south, 0.0}, {westDegrees + 0.02, south + 0.02, 0.0})));
        const auto pyramid = WarpedImagePyramid::create(source, degrees, metres, "a");
        const SO<NBX::Image> pixels = this->pixels(*pyramid, 0);
        ASSERT_TRUE(pixels);
        const unsigned char * middle = pixels->pixelComponentsU8(pixels->width() / 2, pixels->height() / 2);
        for (int layer = 0; layer < 3; ++layer)
            EXPECT_NEAR(153, middle[layer], 1);
        EXPECT_EQ(255, middle[3]);
    }
}

TEST_F(WarpedImagePyramidTest, BesideTheImageIsNothing) {
    const SO<TiledGeoImagePyramid> pyramid = warped(writeWaves(30, 20));
    EXPECT_FALSE(pyramid->overview(0)->getImage(100, 0, 8, 8));
    EXPECT_FALSE(pyramid->overview(0)->getImage(-9, 0, 8, 8));
    EXPECT_TRUE(pyramid->overview(0)->getImage(-4, -4, 100, 100));
    RecordedReports reports;
    EXPECT_FALSE(pyramid->overview(pyramid->overviews()));
    EXPECT_EQ(1U, reports.size()) << reports;
}

TEST_F(WarpedImagePyramidTest, IsStoredWithItsSource) {
    const SO<TiledGeoImagePyramid> pyramid = warped(writeWaves(30, 20));
    const SO<TiledGeoImagePyramid> read = roundTrip(pyramid);
    ASSERT_TRUE(read);
    EXPECT_EQ(pyramid->maxX(), read->maxX());
    EXPECT_EQ(pyramid->overviews(), read->overviews());
    EXPECT_TRUE(pixels(*read, 0));
    EXPECT_EQ((std::vector<std::string>{"source", "from", "to"}), RecordedAttributes::of(*pyramid));
}

} // namespace
