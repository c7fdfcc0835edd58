#include <zmt/raster/geoimage.h>

#include <cmath>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>

#include <support/recordedreports.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;

SO<NBX::Image> image(int width, int height) {
    return new NBX::MemoryImage(width, height, NBX::LS_RGB);
}

TEST(GeoImageTest, ExtentGoesFromCentreToCentre) {
    const SO<NBX::Image> pixels = image(5, 3);
    const SO<GeoImage> geo(new GeoImage(pixels.get(), 10.0, 18.0, 100.0, 101.0));
    EXPECT_EQ(2.0, geo->pixelSizeX());
    EXPECT_EQ(0.5, geo->pixelSizeY());
    EXPECT_EQ(10.0, geo->minX());
    EXPECT_EQ(18.0, geo->maxX());
    EXPECT_EQ(100.0, geo->minY());
    EXPECT_EQ(101.0, geo->maxY());
    EXPECT_EQ(pixels.get(), geo->image().get());
    EXPECT_EQ(5, geo->width());
    EXPECT_EQ(NBX::LS_RGB, geo->layerSequence());
}

TEST(GeoImageTest, OriginAndPixelSizeGiveTheExtent) {
    const SO<GeoImage> geo = GeoImage::fromOrigin(image(5, 3).get(), 10.0, 100.0, 2.0, 0.5);
    EXPECT_EQ(18.0, geo->maxX());
    EXPECT_EQ(101.0, geo->maxY());
    EXPECT_EQ(2.0, geo->pixelSizeX());
}

TEST(GeoImageTest, OnePixelHasASize) {
    const SO<GeoImage> point(new GeoImage(image(1, 1).get(), 10.0, 10.0, 5.0, 8.0));
    EXPECT_EQ(1.0, point->pixelSizeX());
    EXPECT_EQ(3.0, point->pixelSizeY());
    const SO<GeoImage> sized = GeoImage::fromOrigin(image(1, 1).get(), 10.0, 5.0, 30.0, 20.0);
    EXPECT_EQ(10.0, sized->maxX());
    EXPECT_EQ(30.0, sized->pixelSizeX());
    EXPECT_EQ(20.0, sized->pixelSizeY());
}

TEST(GeoImageTest, WrongExtentsAndNoImageAreReported) {
    RecordedReports reports;
    const SO<GeoImage> reversed(new GeoImage(image(2, 2).get(), 1.0, 0.0, 0.0, 1.0));
    const SO<GeoImage> infinite(new GeoImage(image(2, 2).get(), 0.0, INFINITY, 0.0, 1.0));
    EXPECT_EQ(2U, reports.count(0, L"isExtent", L"the extent of an image is reversed or not finite"));
    reports.clear();
    const SO<GeoImage> none = GeoImage::fromOrigin(nullptr, 0.0, 0.0, 1.0, 1.0);
    EXPECT_EQ(1U, reports.count(0, L"master", L"no image"));
    EXPECT_EQ(0, none->width());
}

} // namespace
