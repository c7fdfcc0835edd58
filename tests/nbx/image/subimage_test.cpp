#include <nbx/image/subimage.h>

#include <nbx/image/compressedimage.h>
#include <nbx/math/area.h>
#include <nbx/math/color.h>

#include "support/recordedreports.h"
#include "testimages.h"

using namespace NBX;

TEST(SubImageTest, SharesPixelsUpToTheBorders) {
    RecordedReports reports;
    const SO<MemoryImage> image = randomImage(6, 5, LS_RGB, Image::UInt8, 8);
    const Area areas[] = {{0, 0, 6, 5}, {0, 0, 1, 1}, {5, 4, 1, 1}, {2, 1, 4, 4}, {0, 4, 6, 1}};
    for (const Area & area : areas) {
        const SO<SubImage> part(new SubImage(image.get(), area));
        ASSERT_EQ(part->width(), int(area.getWidth()));
        ASSERT_EQ(part->height(), int(area.getHeight()));
        for (int y = 0; y < part->height(); ++y)
            for (int x = 0; x < part->width(); ++x)
                EXPECT_EQ(part->pixelComponents(x, y, 2),
                          image->pixelComponents(area.getX() + x, area.getY() + y, 2));
        for (int y = 1; y < part->height(); ++y)
            EXPECT_EQ(part->lineComponentsU8(y) - part->lineComponentsU8(y - 1),
                      part->width() * 3 + part->padding());
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(SubImageTest, AreasBeyondTheImageAreReportedAndClipped) {
    struct Case {
        Area area;
        int width, height;
    };
    const Case cases[] = {{{-1, 0, 3, 5}, 2, 5},  {{4, 3, 4, 4}, 2, 2}, {{6, 0, 1, 1}, 0, 1},
                          {{-5, -5, 2, 2}, 0, 0}, {{0, 0, 0, 0}, 0, 0}, {{1, 1, 0xFFFFFFFF, 1}, 5, 1}};
    const SO<MemoryImage> image = randomImage(6, 5, LS_RGB);
    for (const Case & c : cases) {
        RecordedReports reports;
        const SO<SubImage> part(new SubImage(image.get(), c.area));
        EXPECT_EQ(reports.size(), 1u);
        EXPECT_EQ(part->width(), c.width);
        EXPECT_EQ(part->height(), c.height);
    }
    RecordedReports reports;
    const SO<SubImage> none(new SubImage(nullptr, Area(0, 0, 1, 1)));
    EXPECT_EQ(reports.count(0, L"image", L"no image"), 1u);
    EXPECT_EQ(none->width(), 0);
    EXPECT_EQ(none->lineComponents(0), nullptr);
}

TEST(SubImageTest, FourChildrenFillAnAtlas) {
    const SO<MemoryImage> atlas(new MemoryImage(8, 8, LS_RGB));
    const SO<MemoryImage> child = randomImage(16, 16, LS_BGR);
    const SO<Image> quarter(new MemoryImage(4, 4, LS_RGB));
    quarter->copy(child.get());
    for (int i = 1; i < 4; ++i) {
        const Area area(i % 2 * 4, i / 2 * 4, 4, 4);
        ASSERT_TRUE(SO<SubImage>(new SubImage(atlas.get(), area))->copy(child.get()));
        EXPECT_TRUE(samePixels(*SO<SubImage>(new SubImage(atlas.get(), area)), *quarter));
    }
    EXPECT_EQ(atlas->getColor(3, 3), Color::black);
}

TEST(SubImageTest, FlipStaysInside) {
    const SO<MemoryImage> image = randomImage(5, 5, LS_Luminance);
    const SO<Image> before = image->uncompressed(true);
    SO<SubImage>(new SubImage(image.get(), Area(1, 1, 3, 3)))->flip(true, true);
    EXPECT_EQ(*image->pixelComponentsU8(1, 1), *before->pixelComponentsU8(3, 3));
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(*image->pixelComponentsU8(i, 0), *before->pixelComponentsU8(i, 0));
        EXPECT_EQ(*image->pixelComponentsU8(4, i), *before->pixelComponentsU8(4, i));
    }
}

TEST(SubImageTest, OfCompressedPixelsIsReadOnly) {
    const SO<CompressedImage> image(
        new CompressedImage(CompressedImage::DXT1, smoothImage(8, 8, LS_RGB).get()));
    const SO<SubImage> part(new SubImage(image.get(), Area(4, 4, 4, 4)));
    EXPECT_FALSE(part->isWritable());
    EXPECT_EQ(part->getColor(0, 0), image->getColor(4, 4));
    RecordedReports reports;
    part->setColor(0, 0, Color::white);
    EXPECT_EQ(reports.count(0, L"isWritable()", L"image is read only"), 1u);
}
