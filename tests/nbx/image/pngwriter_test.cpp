#include <nbx/image/pngwriter.h>

#include <nbx/image/pngreader.h>

#include "support/recordedreports.h"
#include "testimages.h"

using namespace NBX;

namespace {

SO<Image> throughPng(const Image & image, int level = 6) {
    const SO<MemoryDataResource> data = SO<PNGWriter>(new PNGWriter(level))->write(&image);
    return SO<PNGReader>(new PNGReader())->read(data.get());
}

} // namespace

TEST(PNGWriterTest, RoundTripIsExact) {
    for (const LayerSequence sequence : {LS_Luminance, LS_LuminanceAlpha, LS_RGB, LS_RGBA})
        for (const int type : {Image::UInt8, Image::UInt16})
            for (const int size : {1, 2, 33}) {
                const SO<MemoryImage> image = randomImage(size, size + 2, sequence, type, 8);
                const SO<Image> back = throughPng(*image);
                ASSERT_TRUE(back);
                EXPECT_TRUE(samePixels(*image, *back)) << sequence << ", " << type << ", " << size;
            }
}

TEST(PNGWriterTest, OtherLayersAreStoredInTheNearestOnes) {
    const std::pair<LayerSequence, LayerSequence> cases[] = {{LS_BGR, LS_RGB},
                                                             {LS_BGRA, LS_RGBA},
                                                             {LS_Alpha, LS_LuminanceAlpha},
                                                             {LS_Intensity, LS_LuminanceAlpha}};
    for (const auto & [sequence, stored] : cases) {
        const SO<MemoryImage> image = randomImage(5, 4, sequence);
        const SO<Image> back = throughPng(*image);
        ASSERT_TRUE(back);
        EXPECT_EQ(back->layerSequence(), stored);
        const SO<Image> again(new MemoryImage(5, 4, sequence));
        again->copy(back.get());
        EXPECT_TRUE(samePixels(*image, *again)) << sequence;
    }
}

TEST(PNGWriterTest, FloatsAreCutTo16Bits) {
    const SO<Image> image(new MemoryImage(3, 1, LS_Luminance, Image::Float));
    const float values[] = {-1.0F, 0.5F, 2.0F};
    std::memcpy(image->lineComponents(0), values, sizeof(values));
    const SO<Image> back = throughPng(*image);
    ASSERT_TRUE(back);
    const auto * line = static_cast<const std::uint16_t *>(back->lineComponents(0));
    EXPECT_EQ(std::vector<int>(line, line + 3), (std::vector<int>{0, 32768, 65535}));
}

TEST(PNGWriterTest, LevelsGiveTheSamePicture) {
    const SO<MemoryImage> image = smoothImage(40, 40, LS_RGB);
    for (const int level : {0, 9})
        EXPECT_TRUE(samePixels(*throughPng(*image, level), *image));
}

TEST(PNGWriterTest, NothingToWriteGivesNull) {
    RecordedReports reports;
    const SO<PNGWriter> writer(new PNGWriter(11));
    EXPECT_EQ(writer->level(), 9);
    EXPECT_EQ(writer->write(nullptr), nullptr);
    EXPECT_EQ(writer->write(SO<Image>(new MemoryImage(1, 0, LS_RGB)).get()), nullptr);
    EXPECT_EQ(reports.size(), 3u);
}
