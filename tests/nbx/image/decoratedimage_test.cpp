#include <nbx/image/decoratedimage.h>

#include <nbx/image/compressedimage.h>
#include <nbx/math/color.h>

#include "support/recordedreports.h"
#include "testimages.h"

using namespace NBX;

TEST(DecoratedImageTest, StandsForItsMaster) {
    const SO<MemoryImage> master = randomImage(5, 3, LS_RGBA, Image::UInt8, 8);
    const SO<DecoratedImage> image(new DecoratedImage(master.get()));
    EXPECT_EQ(image->master(), master);
    EXPECT_TRUE(samePixels(*image, *master));
    EXPECT_EQ(image->padding(), master->padding());
    EXPECT_EQ(image->alignment(), 8);
    EXPECT_EQ(image->pixelComponents(2, 1, 3), master->pixelComponents(2, 1, 3));
    image->setColor(1, 1, Color::red);
    EXPECT_EQ(master->getColor(1, 1), Color::red);
    EXPECT_EQ(image->uncompressed(false), master);
    EXPECT_EQ(image->createMipmapPyramid().size(), 3u);
    const SO<Image> before = master->uncompressed(true);
    image->flip(false, true);
    EXPECT_EQ(master->getColor(0, 0), before->getColor(0, 2));
}

TEST(DecoratedImageTest, PassesOnWhatTheMasterDoesItsOwnWay) {
    const SO<CompressedImage> master(
        new CompressedImage(CompressedImage::DXT1, smoothImage(8, 8, LS_RGB).get()));
    const SO<DecoratedImage> image(new DecoratedImage(master.get()));
    EXPECT_FALSE(image->isWritable());
    EXPECT_TRUE(soCast<CompressedImage>(image->createMipmapPyramid()[1]));
    EXPECT_TRUE(soCast<MemoryImage>(image->uncompressed(false)));
}

TEST(DecoratedImageTest, WithoutMasterIsEmpty) {
    RecordedReports reports;
    const SO<DecoratedImage> image(new DecoratedImage(nullptr));
    EXPECT_EQ(reports.count(0, L"master", L"no image"), 1u);
    EXPECT_EQ(image->width(), 0);
    EXPECT_EQ(image->lineComponents(0), nullptr);
    EXPECT_EQ(image->uncompressed(true), nullptr);
    EXPECT_TRUE(image->createMipmapPyramid().empty());
}
