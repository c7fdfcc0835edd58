#include <zmt/raster/stackedimagepyramid.h>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>
#include <zmt/raster/tiledgeoimage.h>

#include <support/recordedreports.h>

namespace {

using namespace ZMT::RASTER;
using NBX::SO;

/// All pixels have the number; coarser levels follow to one pixel.
SO<TiledGeoImagePyramid> pyramid(int width, int height, std::uint8_t number) {
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(width, height, NBX::LS_Luminance));
    for (int y = 0; y < height; ++y)
        std::fill_n(image->lineComponentsU8(y), width, number);
    return new MemoryTiledGeoImagePyramid(image.get(), NBX::Bounds({1.0, 2.0, 0.0}, {17.0, 10.0, 0.0}));
}

std::string levelsOf(const TiledGeoImagePyramid & pyramid) {
    std::string text;
    for (unsigned i = 0; i < pyramid.overviews(); ++i) {
        const SO<TiledGeoImage> level = pyramid.overview(i);
        text += std::to_string(level->pixelsX()) + "x" + std::to_string(level->pixelsY()) + ":" +
                std::to_string(*level->getImage(0, 0, 1, 1)->pixelComponentsU8(0, 0)) + " ";
    }
    return text;
}

TEST(StackedImagePyramid, FineLevelsLieOnCoarseOnes) {
    const auto fine = pyramid(16, 8, 1);
    const SO<StackedImagePyramid> one(new StackedImagePyramid(fine.get(), 1, pyramid(8, 4, 2).get()));
    EXPECT_EQ("16x8:1 8x4:2 4x2:2 2x1:2 1x1:2 ", levelsOf(*one));
    EXPECT_EQ(1.0, one->minX());
    EXPECT_EQ(2.0, one->minY());
    EXPECT_EQ(17.0, one->maxX());
    EXPECT_EQ(10.0, one->maxY());
    const SO<StackedImagePyramid> two(new StackedImagePyramid(fine.get(), 2, pyramid(4, 2, 2).get()));
    EXPECT_EQ("16x8:1 8x4:1 4x2:2 2x1:2 1x1:2 ", levelsOf(*two));
}

TEST(StackedImagePyramid, LevelsThatAreNoSmallerAreLeftOut) {
    const auto fine = pyramid(4, 2, 1);
    const SO<StackedImagePyramid> stack(new StackedImagePyramid(fine.get(), 99, pyramid(16, 8, 2).get()));
    EXPECT_EQ("4x2:1 2x1:1 1x1:1 ", levelsOf(*stack));
}

TEST(StackedImagePyramid, MissingPyramidsAndLevelsAreReported) {
    RecordedReports reports;
    const auto one = pyramid(2, 2, 1);
    const SO<StackedImagePyramid> coarse(new StackedImagePyramid(nullptr, 1, one.get()));
    EXPECT_EQ("2x2:1 1x1:1 ", levelsOf(*coarse));
    const SO<StackedImagePyramid> fine(new StackedImagePyramid(one.get(), 1, nullptr));
    EXPECT_EQ("2x2:1 ", levelsOf(*fine));
    EXPECT_EQ(2U, reports.size());
    EXPECT_FALSE(fine->overview(1));
    EXPECT_EQ(3U, reports.size());
}

} // namespace
