#include <zmt/raster/memorytiledgeoimagepyramid.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/tiledgeoimage.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;

/// Red is the column, green the line.
SO<NBX::MemoryImage> ramp(int width, int height) {
    SO<NBX::MemoryImage> result(new NBX::MemoryImage(width, height, NBX::LS_RGB));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            result->pixelComponentsU8(x, y)[0] = static_cast<unsigned char>(x);
            result->pixelComponentsU8(x, y)[1] = static_cast<unsigned char>(y);
        }
    return result;
}

NBX::Bounds box(double minX, double minY, double maxX, double maxY) {
    return {{minX, minY, 0.0}, {maxX, maxY, 0.0}};
}

SO<MemoryTiledGeoImagePyramid> pyramid(int width, int height) {
    return new MemoryTiledGeoImagePyramid(ramp(width, height).get(),
                                          box(1000.0, 500.0, 1000.0 + 10.0 * width, 500.0 + 5.0 * height));
}

TEST(MemoryTiledGeoImagePyramidTest, LevelsAreHalvedDownToOnePixel) {
    const SO<MemoryTiledGeoImagePyramid> p = pyramid(100, 30);
    const unsigned sizes[][2] = {{100, 30}, {50, 15}, {25, 8}, {13, 4}, {7, 2}, {4, 1}, {2, 1}, {1, 1}};
    ASSERT_EQ(8U, p->overviews());
    for (unsigned i = 0; i < 8; ++i) {
        const SO<TiledGeoImage> level = p->overview(i);
        EXPECT_EQ(sizes[i][0], level->pixelsX()) << i;
        EXPECT_EQ(sizes[i][1], level->pixelsY()) << i;
        EXPECT_DOUBLE_EQ(1000.0 / sizes[i][0], level->pixelSizeX()) << i;
        EXPECT_DOUBLE_EQ(150.0 / sizes[i][1], level->pixelSizeY()) << i;
        EXPECT_DOUBLE_EQ(2000.0, level->maxX()) << i;
        EXPECT_EQ(3U, level->bands()) << i;
    }
    EXPECT_EQ(1000.0, p->minX());
    EXPECT_EQ(500.0, p->minY());
    EXPECT_EQ(2000.0, p->maxX());
    EXPECT_EQ(650.0, p->maxY());
}

TEST(MemoryTiledGeoImagePyramidTest, UnknownLevelsAreReported) {
    RecordedReports reports;
    EXPECT_FALSE(pyramid(2, 2)->overview(2));
    EXPECT_EQ(1U, reports.count(0, L"index < levels_.size()", L"no such level: 2"));
}

TEST(MemoryTiledGeoImagePyramidTest, TheWholeAtFullSize) {
    const SO<GeoImage> image = pyramid(100, 30)->getGeoImage(1000.0, 500.0, 2000.0, 650.0, 128, 32);
    ASSERT_TRUE(image);
    EXPECT_EQ(100, image->width());
    EXPECT_EQ(30, image->height());
    EXPECT_DOUBLE_EQ(1005.0, image->minX());
    EXPECT_DOUBLE_EQ(1995.0, image->maxX());
    EXPECT_DOUBLE_EQ(502.5, image->minY());
    EXPECT_DOUBLE_EQ(647.5, image->maxY());
    EXPECT_EQ(99, image->pixelComponentsU8(99, 29)[0]);
    EXPECT_EQ(29, image->pixelComponentsU8(99, 29)[1]);
}

TEST(MemoryTiledGeoImagePyramidTest, TheLevelFitsTheWantedSize) {
    const SO<MemoryTiledGeoImagePyramid> p = pyramid(100, 30);
    const SO<GeoImage> image = p->getGeoImage(1000.0, 500.0, 2000.0, 650.0, 50, 50);
    ASSERT_TRUE(image);
    EXPECT_EQ(50, image->width());
    EXPECT_EQ(15, image->height());
    EXPECT_EQ(1, p->getOverviewIndex(1000.0, 500.0, 2000.0, 650.0, 50, 50));
    EXPECT_EQ(2, p->getOverviewIndex(1000.0, 500.0, 2000.0, 650.0, 49, 50));
    EXPECT_EQ(0, p->getOverviewIndex(1000.0, 500.0, 1500.0, 600.0, 50, 50));
    EXPECT_EQ(-1, p->getOverviewIndex(0.0, 0.0, 10.0, 10.0, 50, 50));
}

TEST(MemoryTiledGeoImagePyramidTest, AFilterFindsOneMorePixelWhereThereIsRoom) {
    const SO<MemoryTiledGeoImagePyramid> p = pyramid(100, 30);
    // Columns 10 to 19, lines 0 to 9: no room below, where the image ends.
    const SO<GeoImage> image = p->getGeoImage(1100.0, 500.0, 1200.0, 550.0, 16, 16);
    ASSERT_TRUE(image);
    EXPECT_EQ(12, image->width());
    EXPECT_EQ(11, image->height());
    EXPECT_EQ(9, image->pixelComponentsU8(0, 0)[0]);
    EXPECT_EQ(0, image->pixelComponentsU8(0, 0)[1]);
    EXPECT_DOUBLE_EQ(1095.0, image->minX());
}

TEST(MemoryTiledGeoImagePyramidTest, WithoutRoomForThatPixelTheNextLevelServes) {
    const SO<MemoryTiledGeoImagePyramid> p = pyramid(100, 30);
    for (const unsigned size : {10U, 11U}) {
        EXPECT_EQ(0, p->getOverviewIndex(1100.0, 500.0, 1200.0, 550.0, size, 16));
        const SO<GeoImage> coarser = p->getGeoImage(1100.0, 500.0, 1200.0, 550.0, size, 16);
        ASSERT_TRUE(coarser);
        EXPECT_EQ(7, coarser->width()) << "columns 5 to 9, and one more on each side";
        EXPECT_DOUBLE_EQ(20.0, coarser->pixelSizeX());
        EXPECT_DOUBLE_EQ(1090.0, coarser->minX());
    }
    EXPECT_EQ(12, p->getGeoImage(1100.0, 500.0, 1200.0, 550.0, 12, 11)->width());
    EXPECT_EQ(7, p->getGeoImage(1100.0, 500.0, 1200.0, 550.0, 12, 10)->width()) << "none above";
    EXPECT_EQ(100, p->getGeoImage(1000.0, 500.0, 2000.0, 650.0, 100, 30)->width()) << "nothing goes on";
    const SO<MemoryTiledGeoImagePyramid> single = pyramid(1, 1);
    EXPECT_EQ(1, single->getGeoImage(1000.0, 500.0, 1100.0, 550.0, 1, 1)->width());
    EXPECT_EQ(1, single->getGeoImage(1002.0, 501.0, 1003.0, 502.0, 1, 1)->width()) << "less than a pixel";
}

TEST(MemoryTiledGeoImagePyramidTest, SizeZeroGivesThePixelsAsTheyAre) {
    const SO<MemoryTiledGeoImagePyramid> p = pyramid(100, 30);
    const SO<GeoImage> image = p->overview(1)->getGeoImage(1100.0, 500.0, 1200.0, 550.0, 0, 0);
    ASSERT_TRUE(image);
    EXPECT_EQ(5, image->width());
    EXPECT_EQ(5, image->height());
    const SO<GeoImage> finest = p->getGeoImage(1100.0, 500.0, 1200.0, 550.0, 0, 0);
    ASSERT_TRUE(finest);
    EXPECT_EQ(10, finest->width());
}

TEST(MemoryTiledGeoImagePyramidTest, BoxesAreClippedToTheImage) {
    const SO<GeoImage> image = pyramid(100, 30)->getGeoImage(-1e9, 640.0, 1030.0, 1e9, 100, 100);
    ASSERT_TRUE(image);
    EXPECT_EQ(4, image->width());
    EXPECT_EQ(3, image->height());
    EXPECT_DOUBLE_EQ(1005.0, image->minX());
    EXPECT_DOUBLE_EQ(647.5, image->maxY());
}

TEST(MemoryTiledGeoImagePyramidTest, NothingWhereNothingLies) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const SO<MemoryTiledGeoImagePyramid> p = pyramid(100, 30);
    EXPECT_FALSE(p->getGeoImage(0.0, 500.0, 999.0, 650.0, 8, 8)) << "beside";
    EXPECT_FALSE(p->getGeoImage(900.0, 500.0, 1000.0, 650.0, 8, 8)) << "touching";
    EXPECT_FALSE(p->getGeoImage(1200.0, 500.0, 1100.0, 650.0, 8, 8)) << "reversed";
    EXPECT_FALSE(p->getGeoImage(1100.0, 500.0, 1100.0, 650.0, 8, 8)) << "no area";
    EXPECT_FALSE(p->getGeoImage(nan, 500.0, 1200.0, 650.0, 8, 8)) << "no number";
    EXPECT_FALSE(p->getGeoImage(1100.0, 500.0, nan, nan, 8, 8)) << "no number";
}

TEST(MemoryTiledGeoImagePyramidTest, MaskColourBecomesTransparent) {
    const SO<NBX::MemoryImage> image = ramp(4, 1);
    const NBX::Color third(2.0 / 255.0, 0.0, 0.0);
    const SO<MemoryTiledGeoImagePyramid> p(
        new MemoryTiledGeoImagePyramid(image.get(), box(0, 0, 4, 1), true, third));
    const SO<NBX::Image> finest = p->overview(0)->getImage(0, 0, 4, 1);
    ASSERT_TRUE(finest);
    ASSERT_EQ(NBX::LS_RGBA, finest->layerSequence());
    EXPECT_EQ(255, finest->pixelComponentsU8(1, 0)[3]);
    EXPECT_EQ(0, finest->pixelComponentsU8(2, 0)[3]);
    const SO<NBX::Image> coarser = p->overview(1)->getImage(0, 0, 2, 1);
    EXPECT_EQ(3, coarser->pixelComponentsU8(1, 0)[0]) << "the transparent pixel has no say";
    EXPECT_EQ(128, coarser->pixelComponentsU8(1, 0)[3]);
    EXPECT_EQ(NBX::LS_RGB, image->layerSequence());
}

TEST(MemoryTiledGeoImagePyramidTest, FloatsStayFloats) {
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(2, 2, NBX::LS_Luminance, NBX::Image::Float));
    for (int i = 0; i < 4; ++i)
        *static_cast<float *>(image->pixelComponents(i % 2, i / 2)) = static_cast<float>(1000 * i);
    const SO<MemoryTiledGeoImagePyramid> p(new MemoryTiledGeoImagePyramid(image.get(), box(0, 0, 2, 2)));
    const SO<GeoImage> one = p->getGeoImage(0, 0, 2, 2, 1, 1);
    ASSERT_TRUE(one);
    EXPECT_EQ(NBX::Image::Float, one->dataType());
    EXPECT_EQ(1500.0F,
              *static_cast<const float *>(static_cast<const NBX::Image &>(*one).pixelComponents(0, 0)));
}

TEST(MemoryTiledGeoImagePyramidTest, NoImageAndNoBoxAreReported) {
    RecordedReports reports;
    const SO<MemoryTiledGeoImagePyramid> none(new MemoryTiledGeoImagePyramid(nullptr, box(0, 0, 1, 1)));
    EXPECT_EQ(1U, reports.count(0, L"image", L"no image"));
    const SO<MemoryTiledGeoImagePyramid> flat(
        new MemoryTiledGeoImagePyramid(ramp(2, 2).get(), box(0, 0, 0, 1)));
    const SO<MemoryTiledGeoImagePyramid> nowhere(
        new MemoryTiledGeoImagePyramid(ramp(2, 2).get(), NBX::Bounds()));
    EXPECT_EQ(2U, reports.count(0, L"hasArea(box)", L"the box of an image has no area"));
    for (const auto & p : {none, flat, nowhere}) {
        EXPECT_EQ(0U, p->overviews());
        EXPECT_FALSE(p->getGeoImage(0, 0, 1, 1, 4, 4));
    }
    EXPECT_EQ(0.0, nowhere->maxX());
}

TEST(MemoryTiledGeoImagePyramidTest, SurvivesStoring) {
    const SO<MemoryTiledGeoImagePyramid> p(new MemoryTiledGeoImagePyramid(
        ramp(5, 3).get(), box(1, 2, 11, 8), true, NBX::Color(0.0, 1.0 / 255.0, 0.0)));
    const SO<MemoryTiledGeoImagePyramid> read = roundTrip(p);
    ASSERT_TRUE(read);
    EXPECT_EQ(p->overviews(), read->overviews());
    EXPECT_EQ(11.0, read->maxX());
    const SO<NBX::Image> image = read->overview(0)->getImage(0, 0, 5, 3);
    ASSERT_TRUE(image);
    EXPECT_EQ(0, image->pixelComponentsU8(0, 1)[3]);
    EXPECT_EQ(4, image->pixelComponentsU8(4, 2)[0]);
}

TEST(MemoryTiledGeoImagePyramidTest, AttributesKeepTheirNamesAndOrder) {
    const SO<MemoryTiledGeoImagePyramid> p = pyramid(2, 2);
    EXPECT_EQ(
        (std::vector<std::string>{"image", "box", "masked", "maskRed", "maskGreen", "maskBlue", "maskAlpha"}),
        RecordedAttributes::of(*p));
    EXPECT_EQ((std::vector<std::string>{"image", "box"}), RecordedAttributes::of(*p, true));
}

TEST(MemoryTiledGeoImagePyramidTest, WhatDoesNotFitTogetherWhenReadHasNoLevels) {
    RecordedReports reports;
    const SO<MemoryTiledGeoImagePyramid> flat(
        new MemoryTiledGeoImagePyramid(ramp(2, 2).get(), box(0, 0, 0, 1)));
    const SO<MemoryTiledGeoImagePyramid> none(new MemoryTiledGeoImagePyramid(nullptr, box(0, 0, 1, 1)));
    reports.clear();
    for (const auto & p : {flat, none}) {
        const SO<MemoryTiledGeoImagePyramid> read = roundTrip(p);
        ASSERT_TRUE(read);
        EXPECT_EQ(0U, read->overviews());
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
