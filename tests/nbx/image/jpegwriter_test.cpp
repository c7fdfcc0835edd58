#include <nbx/image/jpegwriter.h>

#include <nbx/image/jpegreader.h>

#include "support/recordedreports.h"
#include "testimages.h"

using namespace NBX;

TEST(JPEGWriterTest, QualityDecidesAboutTheSize) {
    const SO<MemoryImage> image = randomImage(64, 64, LS_RGB);
    EXPECT_LT(SO<JPEGWriter>(new JPEGWriter(10))->write(image.get())->size(),
              SO<JPEGWriter>(new JPEGWriter(75))->write(image.get())->size());
    EXPECT_EQ(SO<JPEGWriter>(new JPEGWriter())->quality(), 75);
    RecordedReports reports;
    EXPECT_EQ(SO<JPEGWriter>(new JPEGWriter(101))->quality(), 100);
    EXPECT_EQ(reports.size(), 1u);
}

TEST(JPEGWriterTest, AllLayersAndTypesAreWritten) {
    const SO<JPEGWriter> writer(new JPEGWriter(95));
    const SO<JPEGReader> reader(new JPEGReader());
    reader->setProgressBarEnabled(false);
    const SO<MemoryImage> picture = smoothImage(24, 24, LS_RGB);
    for (const LayerSequence sequence : {LS_RGB, LS_RGBA, LS_BGR, LS_BGRA})
        for (const int type : {Image::UInt8, Image::UInt16, Image::Half, Image::Float}) {
            const SO<Image> image(new MemoryImage(24, 24, sequence, type, 8));
            image->copy(picture.get());
            const SO<Image> back = reader->read(writer->write(image.get()).get());
            ASSERT_TRUE(back);
            EXPECT_LT(rootMeanSquare(*back, *picture), 5.0) << sequence << ", " << type;
        }
    for (const LayerSequence sequence : {LS_Luminance, LS_LuminanceAlpha, LS_Intensity, LS_Alpha}) {
        const SO<Image> back = reader->read(writer->write(smoothImage(9, 9, sequence).get()).get());
        ASSERT_TRUE(back);
        EXPECT_EQ(back->layerSequence(), LS_Luminance);
    }
}

TEST(JPEGWriterTest, NothingToWriteGivesNull) {
    RecordedReports reports;
    const SO<JPEGWriter> writer(new JPEGWriter());
    EXPECT_EQ(writer->write(nullptr), nullptr);
    EXPECT_EQ(reports.count(0, L"image", L"no image"), 1u);
    EXPECT_EQ(writer->write(SO<Image>(new MemoryImage(0, 1, LS_RGB)).get()), nullptr);
    reports.clear();
    EXPECT_EQ(writer->write(SO<Image>(new MemoryImage(65501, 1, LS_RGB)).get()), nullptr);
    EXPECT_EQ(reports.count(2, L"false", L"image too large for JPEG: 65501 x 1"), 1u);
    EXPECT_TRUE(writer->write(SO<Image>(new MemoryImage(65500, 1, LS_RGB)).get()));
}
