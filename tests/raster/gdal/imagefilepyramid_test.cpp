#include <zmt/raster/gdal/imagefilepyramid.h>

#include <cmath>
#include <filesystem>

#include <gtest/gtest.h>

#include "geotiff.h"
#include "raster/gdal/gdalimagereader.h"

#include <nbx/image/image.h>
#include <nbx/object/exception.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/tiledgeoimage.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;

constexpr double west = 500000.0, north = 3100000.0, sizeX = 30.0, sizeY = 20.0;

class ImageFilePyramidTest : public testing::Test {
protected:
    std::string write(const TiffContent & content, const std::string & name = "image.tif") {
        return writeTiff(directory.file(name), content);
    }

    /// Red grows to the east, green to the south.
    static TiffContent ramp(int width, int height, int bands = 3) {
        TiffContent content{.width = width, .height = height, .bands = bands, .type = GDT_Byte};
        for (int band = 0; band < bands; ++band)
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    content.values.push_back(band == 0   ? x * 255.0 / width
                                             : band == 1 ? y * 255.0 / height
                                                         : 9);
        return content;
    }

    static void addOverviews(const std::string & path, std::vector<int> factors) {
        GDALDataset * dataset = GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
        ASSERT_TRUE(dataset);
        EXPECT_EQ(CE_None, dataset->BuildOverviews("AVERAGE", static_cast<int>(factors.size()),
                                                   factors.data(), 0, nullptr, nullptr, nullptr));
        GDALClose(dataset);
    }

    static void copyAs(const char * format, const std::string & from, const std::string & to) {
        GDALDataset * source = GDALDataset::Open(from.c_str(), GDAL_OF_RASTER);
        GDALDriver * driver = GetGDALDriverManager()->GetDriverByName(format);
        ASSERT_TRUE(source && driver) << format;
        GDALDataset * copy = driver->CreateCopy(to.c_str(), source, FALSE, nullptr, nullptr, nullptr);
        ASSERT_TRUE(copy) << format;
        GDALClose(copy);
        GDALClose(source);
    }

    /// All levels show the ramp.
    static void expectRamp(const ImageFilePyramid & pyramid, double tolerance) {
        for (unsigned i = 0; i < pyramid.overviews(); ++i) {
            const SO<TiledGeoImage> level = pyramid.overview(i);
            const auto w = static_cast<unsigned>(level->pixelsX()),
                       h = static_cast<unsigned>(level->pixelsY());
            if (w < 4 || h < 4) break;
            const SO<NBX::Image> image = level->getImage(0, 0, w, h);
            ASSERT_TRUE(image) << i;
            for (unsigned y = 0; y < h; y += 3)
                for (unsigned x = 0; x < w; x += 3) {
                    const unsigned char * pixel =
                        image->pixelComponentsU8(static_cast<int>(x), static_cast<int>(y));
                    ASSERT_NEAR((x + 0.5) / w * 255.0, pixel[0], 128.0 / w + tolerance) << i << ": " << x;
                    ASSERT_NEAR((h - y - 0.5) / h * 255.0, pixel[1], 128.0 / h + tolerance) << i << ": " << y;
                }
        }
    }

    TestDirectory directory;
};

TEST_F(ImageFilePyramidTest, LevelsGoDownToOnePixelWithoutOverviews) {
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(ramp(100, 60))));
    ASSERT_EQ(8U, pyramid->overviews());
    const unsigned widths[] = {100, 50, 25, 13, 7, 4, 2, 1};
    for (unsigned i = 0; i < 8; ++i)
        EXPECT_EQ(widths[i], pyramid->overview(i)->pixelsX()) << i;
    EXPECT_EQ(west, pyramid->minX());
    EXPECT_EQ(west + 100 * sizeX, pyramid->maxX());
    EXPECT_EQ(north - 60 * sizeY, pyramid->minY());
    EXPECT_EQ(north, pyramid->maxY());
    EXPECT_EQ(sizeX, pyramid->overview(0)->pixelSizeX());
    EXPECT_EQ(2 * sizeY, pyramid->overview(1)->pixelSizeY());
    EXPECT_TRUE(pyramid->reference().isGeoreferenced);
    expectRamp(*pyramid, 1.5);
}

TEST_F(ImageFilePyramidTest, OverviewsOfTheFileAreLevels) {
    const std::string path = write(ramp(256, 128));
    addOverviews(path, {2, 8});
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(path));
    const unsigned widths[] = {256, 128, 32, 16, 8, 4, 2, 1};
    ASSERT_EQ(8U, pyramid->overviews());
    for (unsigned i = 0; i < 8; ++i)
        EXPECT_EQ(widths[i], pyramid->overview(i)->pixelsX()) << i;
    expectRamp(*pyramid, 1.5);
}

TEST_F(ImageFilePyramidTest, OverviewsAreReadAndNotComputed) {
    const std::string path = write(ramp(64, 64));
    addOverviews(path, {2});
    GDALDataset * dataset = GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    std::vector<unsigned char> seven(32 * 32, 7);
    for (int band = 1; band <= 3; ++band)
        EXPECT_EQ(CE_None, dataset->GetRasterBand(band)->GetOverview(0)->RasterIO(
                               GF_Write, 0, 0, 32, 32, seven.data(), 32, 32, GDT_Byte, 0, 0, nullptr));
    GDALClose(dataset);
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(path));
    EXPECT_EQ(7, *pyramid->overview(1)->getImage(3, 3, 1, 1)->pixelComponentsU8(0, 0));
    EXPECT_EQ(7, *pyramid->overview(3)->getImage(3, 3, 1, 1)->pixelComponentsU8(0, 0));
    EXPECT_NEAR(255 * 3 / 64, *pyramid->overview(0)->getImage(3, 3, 1, 1)->pixelComponentsU8(0, 0), 1);
}

TEST_F(ImageFilePyramidTest, CloudOptimizedFilesVirtualFilesAndJpeg2000) {
    const std::string path = write(ramp(1200, 700));
    const char * formats[][2] = {{"COG", "cog.tif"}, {"VRT", "image.vrt"}, {"JP2OpenJPEG", "image.jp2"}};
    for (const auto & [format, name] : formats) {
        if (!GetGDALDriverManager()->GetDriverByName(format)) continue;
        copyAs(format, path, directory.file(name));
        const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(directory.file(name)));
        EXPECT_EQ(1200U, pyramid->overview(0)->pixelsX()) << format;
        EXPECT_NEAR(600, static_cast<double>(pyramid->overview(1)->pixelsX()), 1) << format;
        expectRamp(*pyramid, 6.0);
    }
}

TEST_F(ImageFilePyramidTest, StripsAsWideAsTheImageDoNotCountAsTiles) {
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(ramp(900, 700))));
    for (unsigned i = 0; i < pyramid->overviews(); ++i) {
        EXPECT_LE(pyramid->overview(i)->granularityX(), 128U) << i;
        EXPECT_LE(pyramid->overview(i)->granularityY(), 128U) << i;
    }
}

TEST_F(ImageFilePyramidTest, DeliversWindowsOfGeoImages) {
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(ramp(100, 60))));
    const SO<GeoImage> image = pyramid->getGeoImage(west + 10 * sizeX, north - 20 * sizeY, west + 20 * sizeX,
                                                    north - 10 * sizeY, 16, 16);
    ASSERT_TRUE(image);
    EXPECT_EQ(12, image->width());
    EXPECT_DOUBLE_EQ(west + 9.5 * sizeX, image->minX());
    EXPECT_DOUBLE_EQ(north - 9.5 * sizeY, image->maxY());
    EXPECT_NEAR(9 * 2.55, image->pixelComponentsU8(0, 0)[0], 1.0);
    EXPECT_NEAR(20 * 4.25, image->pixelComponentsU8(0, 0)[1], 1.0);
    EXPECT_FALSE(pyramid->getGeoImage(0.0, 0.0, 1.0, 1.0, 16, 16));
}

TEST_F(ImageFilePyramidTest, BeyondTheImageIsBlank) {
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(ramp(10, 6))));
    const SO<NBX::Image> image = pyramid->overview(0)->getImage(8, -1, 4, 3);
    ASSERT_TRUE(image);
    ASSERT_EQ(4, image->width());
    EXPECT_EQ(9, image->pixelComponentsU8(1, 1)[2]);
    EXPECT_EQ(0, image->pixelComponentsU8(2, 1)[2]);
    EXPECT_EQ(0, image->pixelComponentsU8(1, 0)[2]);
    EXPECT_FALSE(pyramid->overview(0)->getImage(10, 0, 1, 1));
    EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 1U << 31, 1U << 31));
}

TEST_F(ImageFilePyramidTest, FormatsFollowTheFile) {
    struct Case {
        const char * name;
        TiffContent content;
        NBX::LayerSequence layers;
        int type;
    };
    TiffContent gray = ramp(4, 4, 1), grayWithHoles = gray, alpha = ramp(4, 4, 4), heights = gray,
                counts = gray;
    grayWithHoles.hasNoData = true;
    alpha.options = {"ALPHA=YES"};
    heights.type = GDT_Float32;
    counts.type = GDT_UInt16;
    TiffContent shorts = gray;
    shorts.type = GDT_Int16;
    const Case cases[] = {{"gray", gray, NBX::LS_Luminance, NBX::Image::UInt8},
                          {"gray with no-data", grayWithHoles, NBX::LS_LuminanceAlpha, NBX::Image::UInt8},
                          {"colours", ramp(4, 4), NBX::LS_RGB, NBX::Image::UInt8},
                          {"alpha", alpha, NBX::LS_RGBA, NBX::Image::UInt8},
                          {"floats", heights, NBX::LS_Luminance, NBX::Image::Float},
                          {"signed", shorts, NBX::LS_Luminance, NBX::Image::Float},
                          {"unsigned", counts, NBX::LS_Luminance, NBX::Image::UInt8}};
    for (const Case & c : cases) {
        const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(c.content)));
        const SO<NBX::Image> image = pyramid->overview(0)->getImage(0, 0, 4, 4);
        ASSERT_TRUE(image) << c.name;
        EXPECT_EQ(c.layers, image->layerSequence()) << c.name;
        EXPECT_EQ(c.type, image->dataType()) << c.name;
        EXPECT_EQ(static_cast<unsigned>(image->numberOfLayers()), pyramid->overview(0)->bands()) << c.name;
        EXPECT_EQ(c.layers, pyramid->overview(1)->getImage(0, 0, 2, 2)->layerSequence()) << c.name;
    }
}

TEST_F(ImageFilePyramidTest, ValuesAreDeliveredAsTheyAre) {
    TiffContent content{.width = 3, .height = 2, .values = {1.5, -2e6, -9999, 4, 5, 6}, .bands = 1};
    content.hasNoData = true;
    content.noData = -9999;
    content.scale = 2.0;
    content.offset = 10.0;
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(content)));
    const SO<NBX::Image> image = pyramid->overview(0)->getImage(0, 0, 3, 2);
    ASSERT_TRUE(image);
    const auto value = [&](int x, int y) {
        return *static_cast<const float *>(image->pixelComponents(x, y));
    };
    EXPECT_EQ(13.0F, value(0, 1));
    EXPECT_EQ(-4e6F + 10.0F, value(1, 1));
    EXPECT_EQ(0.0F, value(2, 1)) << "no value";
    EXPECT_EQ(18.0F, value(0, 0));
}

TEST_F(ImageFilePyramidTest, BrightnessIsThatOfTheWholeFile) {
    TiffContent content{
        .width = 8, .height = 1, .values = {0, 100, 200, 300, 400, 500, 600, 1000}, .bands = 1};
    content.type = GDT_UInt16;
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(content)));
    EXPECT_EQ(51, *pyramid->overview(0)->getImage(2, 0, 1, 1)->pixelComponentsU8(0, 0));
}

TEST_F(ImageFilePyramidTest, MirroredAndSouthUpFilesStandUpright) {
    TiffContent content = ramp(20, 10);
    content.geoTransform = {west + 20 * sizeX, -sizeX, 0.0, north - 10 * sizeY, 0.0, sizeY};
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(content)));
    EXPECT_DOUBLE_EQ(west, pyramid->minX());
    EXPECT_DOUBLE_EQ(north, pyramid->maxY());
    const SO<NBX::Image> image = pyramid->overview(0)->getImage(1, 2, 3, 3);
    EXPECT_NEAR(18 * 255.0 / 20, image->pixelComponentsU8(0, 0)[0], 1.0);
    EXPECT_NEAR(2 * 255.0 / 10, image->pixelComponentsU8(0, 0)[1], 1.0);
}

TEST_F(ImageFilePyramidTest, WarpsToAnotherSystem) {
    const std::string path = write(ramp(200, 200));
    for (const bool withOverviews : {false, true}) {
        if (withOverviews) addOverviews(path, {2, 4});
        const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(path, "EPSG:4326"));
        EXPECT_TRUE(pyramid->reference().isGeographic);
        EXPECT_NEAR(87.0, pyramid->minX(), 0.01);
        EXPECT_NEAR(28.02, pyramid->maxY(), 0.01);
        const double cx = 0.5 * (pyramid->minX() + pyramid->maxX());
        const double cy = 0.5 * (pyramid->minY() + pyramid->maxY());
        for (unsigned i = 0; i < 4; ++i) {
            const SO<TiledGeoImage> level = pyramid->overview(i);
            const SO<GeoImage> image =
                level->getGeoImage(cx - 0.001, cy - 0.001, cx + 0.001, cy + 0.001, 0, 0);
            ASSERT_TRUE(image) << i;
            ASSERT_EQ(NBX::LS_RGBA, image->layerSequence()) << i;
            const unsigned char * pixel = image->pixelComponentsU8(image->width() / 2, image->height() / 2);
            EXPECT_NEAR(127, pixel[0], 8) << i;
            EXPECT_NEAR(127, pixel[1], 8) << i;
            EXPECT_EQ(255, pixel[3]) << i;
        }
    }
}

TEST_F(ImageFilePyramidTest, UnknownSystemsCountAsTheSame) {
    TiffContent content = ramp(20, 20);
    content.system = "";
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(content), "EPSG:4326"));
    EXPECT_EQ(west, pyramid->minX());
    const SO<ImageFilePyramid> same(new ImageFilePyramid(write(ramp(20, 20)), "EPSG:32645"));
    EXPECT_EQ(3U, same->overview(0)->bands()) << "not warped";
}

TEST_F(ImageFilePyramidTest, WarpedValuesHaveNothingAround) {
    TiffContent content{.width = 50, .height = 50, .values = std::vector<double>(2500, 8000.0)};
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(content), "EPSG:4326"));
    const SO<TiledGeoImage> level = pyramid->overview(0);
    const auto w = static_cast<unsigned>(level->pixelsX()), h = static_cast<unsigned>(level->pixelsY());
    const SO<NBX::Image> image = level->getImage(0, 0, w, h);
    ASSERT_TRUE(image);
    ASSERT_EQ(NBX::Image::Float, image->dataType());
    EXPECT_EQ(8000.0F, *static_cast<const float *>(
                           image->pixelComponents(static_cast<int>(w / 2), static_cast<int>(h / 2))));
}

/// A float image that is 4 pixels wide: nothing, then 10, 20 and 30 in every line.
TiffContent steps(int height) {
    TiffContent content{.width = 4, .height = height};
    for (int y = 0; y < height; ++y)
        content.values.insert(content.values.end(), {-9999.0, 10.0, 20.0, 30.0});
    content.hasNoData = true;
    content.noData = -9999.0;
    return content;
}

TEST_F(ImageFilePyramidTest, ValuesBecomeColoursWhereTheseAreAskedFor) {
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(steps(2)), "", ImageColors()));
    const SO<NBX::Image> image = pyramid->overview(0)->getImage(0, 0, 4, 2);
    ASSERT_TRUE(image);
    ASSERT_EQ(NBX::LS_LuminanceAlpha, image->layerSequence());
    ASSERT_EQ(NBX::Image::UInt8, image->dataType());
    const int shown[] = {0, 0, 128, 255};
    for (int x = 0; x < 4; ++x) {
        EXPECT_EQ(x > 0 ? 255 : 0, image->pixelComponentsU8(x, 1)[1]) << x;
        EXPECT_EQ(shown[x], image->pixelComponentsU8(x, 1)[0]) << x;
    }
    const SO<NBX::Image> halved = pyramid->overview(1)->getImage(0, 0, 2, 1);
    EXPECT_EQ(128, halved->pixelComponentsU8(0, 0)[1]) << "half of it is nothing";
    EXPECT_EQ(0, halved->pixelComponentsU8(0, 0)[0]) << "nothing has no colour";
}

TEST_F(ImageFilePyramidTest, WarpedNumbersHaveNothingAroundAsColours) {
    TiffContent content = steps(4);
    content.geoTransform = {500000.0, 2000.0, 0.0, 3100000.0, 0.0, -2000.0};
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(content), "EPSG:4326", ImageColors()));
    const double y = 0.5 * (pyramid->minY() + pyramid->maxY());
    const double width = pyramid->maxX() - pyramid->minX();
    const auto at = [&](double share) {
        const double x = pyramid->minX() + share * width;
        return pyramid->overview(0)->getGeoImage(x, y, x + 1e-6, y + 1e-6, 0, 0);
    };
    EXPECT_EQ(0, at(0.1)->pixelComponentsU8(0, 0)[1]) << "no data";
    EXPECT_EQ(255, at(0.625)->pixelComponentsU8(0, 0)[1]);
    EXPECT_NEAR(128, at(0.625)->pixelComponentsU8(0, 0)[0], 20);
}

TEST_F(ImageFilePyramidTest, ColoursAreStored) {
    const auto colors = ImageColors::parse("3,1,2;10,200;0.5").value();
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(ramp(20, 20)), "", colors));
    const auto copy = roundTrip(*pyramid);
    const SO<NBX::Image> expected = pyramid->overview(0)->getImage(0, 0, 20, 20);
    const SO<NBX::Image> image = copy->overview(0)->getImage(0, 0, 20, 20);
    ASSERT_TRUE(expected && image);
    for (int i = 0; i < 60; ++i)
        EXPECT_EQ(expected->lineComponentsU8(5)[i], image->lineComponentsU8(5)[i]) << i;
    const auto values = roundTrip(*SO<ImageFilePyramid>(new ImageFilePyramid(write(steps(2)))));
    EXPECT_EQ(NBX::Image::Float, values->overview(0)->createEmptyImage(1, 1)->dataType());
}

TEST_F(ImageFilePyramidTest, AgreesWithTheImageReaderOnRealImages) {
    const std::string path = std::string(std::getenv("ZMT_TEST_DATA")) + "/everest_image.tif";
    const GdalSource source(path, GdalSource::Outside::Transparent);
    const GdalImageReader reader(source);
    const unsigned width = source.width(), height = source.height();
    auto whole = reader.readRgba(-1, {0, 0, int(width), int(height)}, width, height);
    reader.orient(whole.data(), width, height, 4);
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(path));
    const SO<NBX::Image> image = pyramid->overview(0)->getImage(0, 0, width, height);
    ASSERT_TRUE(image);
    const int layers = std::min(image->numberOfLayers(), 3);
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            for (int layer = 0; layer < layers; ++layer)
                ASSERT_EQ(whole[4 * (std::size_t(y) * width + x) + std::size_t(layer)],
                          image->pixelComponentsU8(int(x), int(y))[layer]);
}

TEST_F(ImageFilePyramidTest, LargeFilesKeepLittleInMemory) {
    TiffContent content{.width = 1, .height = 1, .values = {0}, .type = GDT_Byte};
    write(content); // registers the formats
    const char * const options[] = {"SPARSE_OK=TRUE", "TILED=YES", nullptr};
    GDALDataset * dataset = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        directory.file("large.tif").c_str(), 20000, 10000, 1, GDT_Byte, const_cast<char **>(options));
    std::vector<unsigned char> bright(256 * 256, 200);
    EXPECT_EQ(CE_None, dataset->GetRasterBand(1)->RasterIO(GF_Write, 5120, 5120, 256, 256, bright.data(), 256,
                                                           256, GDT_Byte, 0, 0, nullptr));
    GDALClose(dataset);
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(directory.file("large.tif")));
    const SO<NBX::Image> halved = pyramid->overview(1)->getImage(2560, 2312, 128, 128);
    ASSERT_TRUE(halved);
    EXPECT_EQ(200, *halved->pixelComponentsU8(64, 64));
    const SO<GeoImage> all =
        pyramid->getGeoImage(pyramid->minX(), pyramid->minY(), pyramid->maxX(), pyramid->maxY(), 512, 512);
    ASSERT_TRUE(all);
    EXPECT_EQ(313, all->width());
    EXPECT_EQ(157, all->height());
    int brightest = 0;
    for (int y = 0; y < all->height(); ++y)
        for (int x = 0; x < all->width(); ++x)
            brightest = std::max<int>(brightest, *all->pixelComponentsU8(x, y));
    EXPECT_GE(brightest, 190);
}

TEST_F(ImageFilePyramidTest, AFileThatIsCutOffInUseIsReportedOnce) {
    TiffContent content = ramp(600, 600);
    content.options = {"TILED=YES"};
    const std::string path = write(content);
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(path));
    std::filesystem::resize_file(path, 2000);
    RecordedReports reports;
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(pyramid->overview(0)->getImage(300, 300, 256, 256));
        EXPECT_FALSE(
            pyramid->getGeoImage(pyramid->minX(), pyramid->minY(), pyramid->maxX(), pyramid->maxY(), 64, 64));
    }
    EXPECT_EQ(1U, reports.size()) << reports;
    EXPECT_EQ(2, reports.last().level);
    EXPECT_TRUE(pyramid->overview(0)->failed());
}

TEST_F(ImageFilePyramidTest, FilesOfEveryFormatThatShrinkInUseAreReported) {
    TiffContent content = ramp(600, 600);
    for (std::size_t i = 0; i < content.values.size(); ++i)
        content.values[i] = static_cast<double>((i * i / 7) % 251);
    const std::string path = write(content);
    const char * formats[][2] = {{"GTiff", "copy.tif"}, {"ENVI", "image.img"},       {"EHdr", "image.bil"},
                                 {"PNM", "image.ppm"},  {"BMP", "image.bmp"},        {"PNG", "image.png"},
                                 {"JPEG", "image.jpg"}, {"JP2OpenJPEG", "image.jp2"}};
    for (const auto & [format, name] : formats) {
        if (!GetGDALDriverManager()->GetDriverByName(format)) continue;
        const std::string copy = directory.file(name);
        copyAs(format, path, copy);
        const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(copy));
        std::filesystem::resize_file(copy, std::filesystem::file_size(copy) / 2);
        RecordedReports reports;
        for (int i = 0; i < 2; ++i)
            EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 64, 64)) << format;
        EXPECT_EQ(1U, reports.size()) << format << ": " << reports;
        EXPECT_EQ(2, reports.last().level) << format;
    }
}

TEST_F(ImageFilePyramidTest, WhatIsLeftOfATiffFileThatShrinksIsDelivered) {
    TiffContent content = ramp(600, 600);
    content.options = {"TILED=YES"};
    const std::string path = write(content);
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(path));
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    RecordedReports reports;
    EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 64, 64));
    EXPECT_TRUE(pyramid->overview(0)->getImage(0, 536, 64, 64)) << "the north comes first in the file";
    EXPECT_EQ(1U, reports.size()) << reports;
}

TEST_F(ImageFilePyramidTest, AJpegFileThatWasCutOffIsNeverGray) {
    TiffContent content = ramp(600, 600);
    for (std::size_t i = 0; i < content.values.size(); ++i)
        content.values[i] = static_cast<double>((i * i / 7) % 251);
    const std::string copy = directory.file("image.jpg");
    copyAs("JPEG", write(content), copy);
    std::filesystem::resize_file(copy, std::filesystem::file_size(copy) / 2);
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(copy));
    RecordedReports reports;
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(pyramid->overview(0)->getImage(0, 0, 64, 64)) << i;
    EXPECT_EQ(1U, reports.size()) << reports;
}

TEST_F(ImageFilePyramidTest, ARemovedFileIsStillOpen) {
    const std::string path = write(ramp(64, 64));
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(path));
    std::filesystem::remove(path);
    RecordedReports reports;
    EXPECT_TRUE(pyramid->overview(0)->getImage(0, 0, 64, 64));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(ImageFilePyramidTest, LevelsOutliveThePyramid) {
    SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(ramp(64, 64))));
    const SO<TiledGeoImage> level = pyramid->overview(2);
    pyramid = nullptr;
    EXPECT_TRUE(level->getImage(0, 0, 16, 16));
}

TEST_F(ImageFilePyramidTest, WhatIsNoImageThrows) {
    EXPECT_THROW(ImageFilePyramid(directory.file("none.tif")), NBX::FileNotFoundException);
    EXPECT_THROW(ImageFilePyramid(directory.write("text.tif", "no image")), NBX::InputException);
    EXPECT_THROW(ImageFilePyramid(write(ramp(8, 8)), "no system"), NBX::InputException);
}

TEST_F(ImageFilePyramidTest, StoresItsName) {
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(ramp(64, 64)), "EPSG:4326"));
    const SO<ImageFilePyramid> read = roundTrip(pyramid);
    ASSERT_TRUE(read);
    EXPECT_EQ(pyramid->path(), read->path());
    EXPECT_EQ(pyramid->maxX(), read->maxX());
    EXPECT_EQ(pyramid->overviews(), read->overviews());
    EXPECT_TRUE(read->overview(0)->getImage(0, 0, 8, 8));
    EXPECT_EQ((std::vector<std::string>{"fileName", "wkt", "colors"}), RecordedAttributes::of(*pyramid));
}

TEST_F(ImageFilePyramidTest, AMissingFileIsFoundInTheWorkingDirectory) {
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(ramp(64, 64))));
    const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(*pyramid, true);
    std::filesystem::create_directories(directory.file("moved"));
    std::filesystem::rename(directory.file("image.tif"), directory.file("moved/image.tif"));
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory.file("moved"));
    const SO<ImageFilePyramid> read(
        dynamic_cast<ImageFilePyramid *>(NBX::ObjectStreamReader(bytes.data(), bytes.size()).read().get()));
    std::filesystem::current_path(before);
    ASSERT_TRUE(read);
    EXPECT_EQ(pyramid->overviews(), read->overviews());
}

TEST_F(ImageFilePyramidTest, AMissingFileLeavesNoLevels) {
    const SO<ImageFilePyramid> pyramid(new ImageFilePyramid(write(ramp(64, 64))));
    std::filesystem::remove(pyramid->path());
    RecordedReports reports;
    const SO<ImageFilePyramid> read = roundTrip(pyramid);
    ASSERT_TRUE(read);
    EXPECT_EQ(0U, read->overviews());
    EXPECT_FALSE(read->getGeoImage(west, 0.0, west + 1.0, north, 8, 8));
    EXPECT_EQ(pyramid->path(), read->path());
    EXPECT_EQ(1U, reports.size()) << reports;
}

} // namespace
