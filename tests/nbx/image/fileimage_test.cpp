#include <nbx/image/fileimage.h>

#include <nbx/data/file.h>

#include "support/recordedreports.h"
#include "support/temporaryfolder.h"
#include "testimages.h"

using namespace NBX;

TEST(FileImageTest, KeepsItsPixelsInAFileThatGoesWithIt) {
    const std::string path = File::temporaryFileName("nbx-file-image-");
    {
        const SO<FileImage> image(new FileImage(path, 7, 5, LS_RGB, Image::UInt8, 4));
        ASSERT_EQ(image->width(), 7);
        EXPECT_EQ(image->padding(), 3);
        EXPECT_EQ(*image->pixelComponentsU8(6, 4, 2), 0);
        const SO<MemoryImage> source = randomImage(7, 5, LS_RGB);
        ASSERT_TRUE(image->copy(source.get()));
        EXPECT_TRUE(samePixels(*image, *source));
        const SO<Image> half(new MemoryImage(3, 2, LS_RGB)), expected(new MemoryImage(3, 2, LS_RGB));
        half->copy(image.get());
        expected->copy(source.get());
        EXPECT_TRUE(samePixels(*half, *expected));
        EXPECT_EQ(File(path).size(), 5u * 24u);
    }
    EXPECT_FALSE(File::exists(path));
}

TEST(FileImageTest, UnusablePathsAndSizesAreReported) {
    RecordedReports reports;
    const SO<Image> nowhere(new FileImage("/no/such/folder/image", 2, 2, LS_RGB));
    EXPECT_EQ(nowhere->width(), 0);
    EXPECT_EQ(reports.last().level, 2);
    const std::string path = File::temporaryFileName("nbx-file-image-");
    const SO<Image> large(new FileImage(path, 65536, 65536, LS_Luminance));
    EXPECT_EQ(large->height(), 0);
    EXPECT_EQ(reports.last().level, 2);
    const SO<Image> none(new FileImage(path, 0, 1, LS_Luminance));
    EXPECT_EQ(none->height(), 0);
    EXPECT_EQ(reports.last().level, 0);
    EXPECT_EQ(none->lineComponents(0), nullptr);
    File::remove(path);
}

TEST(FileImageTest, ATemporaryOneHasNoName) {
    RecordedReports reports;
    const TemporaryFolder folder;
    SO<FileImage> image = FileImage::newTemporary("nbx-file-image-", 7, 5, LS_RGB);
    ASSERT_TRUE(image);
    EXPECT_TRUE(folder.isMapped("nbx-file-image-"));
    EXPECT_TRUE(folder.isEmpty());
    const SO<MemoryImage> source = randomImage(7, 5, LS_RGB);
    ASSERT_TRUE(image->copy(source.get()));
    EXPECT_TRUE(samePixels(*image, *source));
    image = nullptr;
    EXPECT_FALSE(folder.isMapped("nbx-file-image-"));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(FileImageTest, ATemporaryOneThatCannotBeMadeIsReported) {
    RecordedReports reports;
    const TemporaryFolder folder;
    EXPECT_FALSE(FileImage::newTemporary("nbx-file-image-", 65536, 65536, LS_Luminance));
    EXPECT_EQ(reports.size(), 1u) << reports;
    EXPECT_EQ(reports.last().level, 2);
    EXPECT_TRUE(folder.isEmpty());
    std::filesystem::remove(std::getenv("TMPDIR"));
    EXPECT_FALSE(FileImage::newTemporary("nbx-file-image-", 7, 5, LS_RGB));
    EXPECT_EQ(reports.size(), 2u) << reports;
    EXPECT_EQ(reports.last().level, 2);
}
