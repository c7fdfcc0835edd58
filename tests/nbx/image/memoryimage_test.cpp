#include <nbx/image/memoryimage.h>

#include <nbx/data/objectstreamreader.h>
#include <nbx/data/objectstreamwriter.h>

#include "support/recordedreports.h"
#include "testimages.h"

using namespace NBX;

TEST(MemoryImageTest, LinesAreAlignedAndStartAsZero) {
    const SO<MemoryImage> image(new MemoryImage(3, 2, LS_RGB, Image::UInt8, 8, ML_Interleaved));
    EXPECT_EQ(image->alignment(), 8);
    EXPECT_EQ(image->padding(), 7);
    EXPECT_EQ(image->memoryLayout(), 1);
    EXPECT_EQ(image->bitsPerPixel(), 24);
    EXPECT_EQ(image->lineComponentsU8(1) - image->lineComponentsU8(0), 16);
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(image->lineComponentsU8(1)[i], 0);
    EXPECT_EQ(SO<MemoryImage>(new MemoryImage(3, 2, LS_RGB))->padding(), 0);
}

TEST(MemoryImageTest, UnusableArgumentsAreReportedAndGiveNoPixels) {
    struct Case {
        const char * name;
        int width, height, alignment;
        MemoryLayout layout;
    };
    const Case cases[] = {{"no width", 0, 4, 1, ML_Interleaved},
                          {"negative height", 4, -1, 1, ML_Interleaved},
                          {"odd alignment", 4, 4, 3, ML_Interleaved},
                          {"no alignment", 4, 4, 0, ML_Interleaved},
                          {"unknown layout", 4, 4, 1, static_cast<MemoryLayout>(7)}};
    for (const Case & c : cases) {
        RecordedReports reports;
        const SO<Image> image(
            new MemoryImage(c.width, c.height, LS_RGB, Image::UInt8, c.alignment, c.layout));
        EXPECT_EQ(reports.size(), 1u) << c.name << ": " << reports;
        EXPECT_EQ(reports.last().level, 0) << c.name;
        EXPECT_EQ(image->width(), 0) << c.name;
        EXPECT_EQ(image->height(), 0) << c.name;
        EXPECT_TRUE(image->createMipmapPyramid().empty()) << c.name;
        EXPECT_EQ(image->copyToPow2(), nullptr) << c.name;
    }
}

TEST(MemoryImageTest, UnknownFormatsBecomeGreyBytes) {
    RecordedReports reports;
    const SO<Image> image(new MemoryImage(2, 2, static_cast<LayerSequence>(6), 5));
    EXPECT_EQ(reports.count(L"unknown image format: layer sequence 6, data type 5"), 1u) << reports;
    EXPECT_EQ(image->layerSequence(), LS_Luminance);
    EXPECT_EQ(image->dataType(), 1);
    EXPECT_EQ(image->width(), 2);
}

TEST(MemoryImageTest, SizesBeyondTheMemoryAreAFailure) {
    RecordedReports reports;
    const SO<Image> image(new MemoryImage(2000000000, 2000000000, LS_RGBA, Image::Float));
    EXPECT_EQ(image->width(), 0);
    EXPECT_EQ(reports.last().level, 2);
}

TEST(MemoryImageTest, IsStoredWithItsPixels) {
    for (const int type : {Image::UInt8, Image::UInt16}) {
        const SO<MemoryImage> image = randomImage(5, 3, LS_BGR, type, 8);
        const std::vector<std::uint8_t> bytes = ObjectStreamWriter::write(*image);
        const SO<Image> back = soCast<Image>(ObjectStreamReader(bytes.data(), bytes.size()).read());
        ASSERT_TRUE(back);
        EXPECT_TRUE(samePixels(*image, *back));
        EXPECT_EQ(back->alignment(), 8);
    }
}

TEST(MemoryImageTest, ChangedStreamsNeverGiveUnreadablePixels) {
    const SO<MemoryImage> image = randomImage(5, 3, LS_RGB);
    const std::vector<std::uint8_t> sound = ObjectStreamWriter::write(*image);
    RecordedReports reports;
    for (std::size_t i = 0; i < sound.size(); ++i)
        for (const int mask : {1, 0x40, 0xFF}) {
            std::vector<std::uint8_t> bytes = sound;
            bytes[i] = static_cast<std::uint8_t>(bytes[i] ^ mask);
            try {
                const SO<Image> back = soCast<Image>(ObjectStreamReader(bytes.data(), bytes.size()).read());
                if (!back) continue;
                for (int y = 0; y < back->height(); ++y)
                    EXPECT_TRUE(back->copyToPow2(16));
            } catch (const Exception &) { // the stream itself is broken
            }
        }
}
