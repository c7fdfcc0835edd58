#include <zmt/util/compressedtexture/virtualtiledgeoimage.h>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

namespace {

class Blank : public ZMT::UTIL::VirtualTiledGeoImage {
public:
    using VirtualTiledGeoImage::VirtualTiledGeoImage;
    NBX::SO<NBX::Image> getImage(unsigned, unsigned, unsigned) const override { return nullptr; }
};

const NBX::Bounds s_extent({10, 20, 7}, {30, 60, 9});

TEST(VirtualTiledGeoImage, TellsItsExtent) {
    const Blank image(20, 12, s_extent, 8);
    EXPECT_EQ(20U, image.width());
    EXPECT_EQ(12U, image.height());
    EXPECT_EQ(8U, image.tileSize());
    EXPECT_EQ(10.0, image.minX());
    EXPECT_EQ(20.0, image.minY());
    EXPECT_EQ(30.0, image.maxX());
    EXPECT_EQ(60.0, image.maxY());
}

TEST(VirtualTiledGeoImage, HalvesUntilOneTileHoldsAll) {
    struct Case {
        const char * name;
        unsigned width, height, tile, levels, lastX, lastY;
    };
    const Case cases[] = {{"one pixel", 1, 1, 1, 1, 1, 1},
                          {"just a tile", 8, 8, 8, 1, 8, 8},
                          {"one more", 9, 8, 8, 2, 5, 4},
                          {"odd", 1001, 3, 8, 8, 8, 1},
                          {"tiles of a pixel", 5, 1, 1, 4, 1, 1},
                          {"the largest", UINT32_MAX, 1, 1, 33, 1, 1},
                          {"the largest tile", UINT32_MAX, 1, UINT32_MAX, 1, UINT32_MAX, 1}};
    for (const Case & c : cases) {
        const Blank image(c.width, c.height, s_extent, c.tile);
        ASSERT_EQ(c.levels, image.levels()) << c.name;
        EXPECT_EQ(c.width, image.pixelsX(0)) << c.name;
        EXPECT_EQ(c.lastX, image.pixelsX(c.levels - 1)) << c.name;
        EXPECT_EQ(c.lastY, image.pixelsY(c.levels - 1)) << c.name;
    }
}

TEST(VirtualTiledGeoImage, WithoutPixelsOrAreaIsReported) {
    RecordedReports reports;
    const Blank narrow(0, 3, s_extent, 8), low(3, 0, s_extent, 8), tileless(3, 3, s_extent, 0);
    EXPECT_EQ(3U, reports.count(L"an image without pixels")) << reports;
    EXPECT_EQ(0U, tileless.levels());
    const Blank nowhere(3, 3, NBX::Bounds(), 8), flat(3, 3, NBX::Bounds({0, 0, 0}, {1, 0, 1}), 8);
    EXPECT_EQ(2U, reports.count(L"the extent of an image has no area")) << reports;
}

} // namespace
