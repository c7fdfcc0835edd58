#include <nbx/image/jpegreader.h>

#include <nbx/image/jpegwriter.h>
#include <nbx/object/progress.h>

#include "codectest.h"

using namespace NBX;

namespace {

SO<MemoryDataResource> encoded(const Image & image, int quality = 90) {
    return SO<JPEGWriter>(new JPEGWriter(quality))->write(&image);
}

SO<Image> decodeJpeg(const DataResource * data) {
    const SO<JPEGReader> reader(new JPEGReader());
    reader->setProgressBarEnabled(false);
    return reader->read(data);
}

/// Where the marker 0xFF `marker` stands.
std::size_t find(const std::vector<unsigned char> & bytes, unsigned char marker) {
    for (std::size_t i = 0; i + 1 < bytes.size(); ++i)
        if (bytes[i] == 0xFF && bytes[i + 1] == marker) return i;
    ADD_FAILURE() << "no marker";
    return 0;
}

class CancellingDisplay : public ProgressDisplay {
public:
    void begin(const Progress &) override { ++begun; }
    bool update(const Progress &) override { return false; }
    void end(const Progress &) override {}
    int begun = 0;
};

} // namespace

TEST(JPEGReaderTest, RoundTripStaysClose) {
    for (const LayerSequence sequence : {LS_Luminance, LS_RGB})
        for (const int size : {1, 7, 64}) {
            const SO<MemoryImage> image = smoothImage(size, size + 1, sequence);
            const SO<Image> back = decodeJpeg(encoded(*image).get());
            ASSERT_TRUE(back);
            EXPECT_EQ(back->layerSequence(), sequence);
            ASSERT_EQ(back->width(), size);
            ASSERT_EQ(back->height(), size + 1);
            EXPECT_LT(rootMeanSquare(*image, *back), 6.0) << size;
        }
}

TEST(JPEGReaderTest, FirstLineOfTheFileIsTheTopLine) {
    // The upper half white: in the file it comes first.
    const SO<MemoryImage> image(new MemoryImage(16, 16, LS_Luminance));
    for (int y = 8; y < 16; ++y)
        std::memset(image->lineComponentsU8(y), 255, 16);
    const SO<Image> back = decodeJpeg(encoded(*image).get());
    ASSERT_TRUE(back);
    EXPECT_LT(*back->pixelComponentsU8(3, 0), 8);
    EXPECT_GT(*back->pixelComponentsU8(3, 15), 247);
}

TEST(JPEGReaderTest, OtherDataGiveNull) {
    EXPECT_EQ(decodeJpeg(nullptr), nullptr);
    EXPECT_EQ(decodeJpeg(SO<MemoryDataResource>(new MemoryDataResource(0)).get()), nullptr);
    EXPECT_EQ(decodeJpeg(SO<MemoryDataResource>(new MemoryDataResource(100)).get()), nullptr);
}

TEST(JPEGReaderTest, EveryBeginningGivesNull) {
    expectNoImageFromAnyBeginning(*encoded(*smoothImage(19, 17, LS_RGB)), decodeJpeg);
    expectNoImageFromAnyBeginning(*encoded(*smoothImage(9, 9, LS_Luminance)), decodeJpeg);
}

TEST(JPEGReaderTest, ChangedBytesAreHarmless) {
    expectChangedBytesAreHarmless(*encoded(*smoothImage(19, 17, LS_RGB), 30), decodeJpeg);
}

TEST(JPEGReaderTest, SizesThatTheDataCannotHoldAreRefused) {
    const SO<MemoryDataResource> sound = encoded(*smoothImage(16, 16, LS_RGB));
    std::vector<unsigned char> bytes(bytesOf(*sound), bytesOf(*sound) + sound->size());
    const std::size_t frame = find(bytes, 0xC0);
    for (int i = 5; i < 9; ++i)
        bytes[frame + i] = 0xFD;
    EXPECT_EQ(decodeJpeg(resourceOf(bytes.data(), bytes.size()).get()), nullptr);
}

TEST(JPEGReaderTest, LargerPicturesThanAllowedAreRefused) {
    const SO<MemoryDataResource> data = encoded(*smoothImage(16, 9, LS_RGB));
    const SO<JPEGReader> reader(new JPEGReader());
    reader->setMaxPixels(16 * 9 - 1);
    EXPECT_FALSE(reader->read(data.get()));
    reader->setMaxPixels(16 * 9);
    EXPECT_TRUE(reader->read(data.get()));
}

TEST(JPEGReaderTest, InksOfAdobeFilesBecomeColors) {
    // A picture of one block of 8 by 8 pixels and four inks: all coefficients zero, so each ink is 128, which
    // leaves 128 * 128 / 255 of the light. Made by hand: each table has one code of one bit.
    std::vector<unsigned char> bytes = {0xFF, 0xD8, 0xFF, 0xEE, 0, 14, 'A', 'd', 'o',
                                        'b',  'e',  0,    100,  0, 0,  0,   0,   0};
    const auto append = [&](std::initializer_list<int> more) {
        for (const int b : more)
            bytes.push_back(static_cast<unsigned char>(b));
    };
    append({0xFF, 0xDB, 0, 67, 0});
    bytes.insert(bytes.end(), 64, 1);
    append({0xFF, 0xC0, 0, 20, 8, 0, 8, 0, 8, 4, 1, 0x11, 0, 2, 0x11, 0, 3, 0x11, 0, 4, 0x11, 0});
    for (const int table : {0x00, 0x10}) {
        append({0xFF, 0xC4, 0, 20, table, 1});
        bytes.insert(bytes.end(), 15, 0);
        append({0});
    }
    append({0xFF, 0xDA, 0, 14, 4, 1, 0, 2, 0, 3, 0, 4, 0, 0, 63, 0, 0x00, 0xFF, 0xD9});
    const SO<Image> image = decodeJpeg(resourceOf(bytes.data(), bytes.size()).get());
    ASSERT_TRUE(image);
    EXPECT_EQ(image->layerSequence(), LS_RGB);
    EXPECT_EQ(*image->pixelComponentsU8(0, 0, 0), 64);
    EXPECT_EQ(*image->pixelComponentsU8(7, 7, 2), 64);
    // Without Adobe's mark the inks are not inverted: 127 * 127 / 255.
    std::vector<unsigned char> plain = bytes;
    plain.erase(plain.begin() + 2, plain.begin() + 18);
    const SO<Image> other = decodeJpeg(resourceOf(plain.data(), plain.size()).get());
    ASSERT_TRUE(other);
    EXPECT_EQ(*other->pixelComponentsU8(0, 0, 1), 63);
}

TEST(JPEGReaderTest, ReaderServesSeveralFiles) {
    const SO<JPEGReader> reader(new JPEGReader());
    EXPECT_TRUE(reader->isProgressBarEnabled());
    const SO<MemoryDataResource> data = encoded(*smoothImage(8, 8, LS_RGB));
    EXPECT_TRUE(reader->read(data.get()));
    EXPECT_FALSE(reader->read(resourceOf(bytesOf(*data), 40).get()));
    EXPECT_TRUE(reader->read(data.get()));
}

TEST(JPEGReaderTest, UserMayCancelWhereProgressIsShown) {
    const SO<MemoryDataResource> data = encoded(*smoothImage(64, 64, LS_RGB));
    CancellingDisplay display;
    ProgressDisplay * before = Progress::setDisplay(&display);
    const SO<JPEGReader> reader(new JPEGReader());
    EXPECT_EQ(reader->read(data.get()), nullptr);
    EXPECT_EQ(display.begun, 1);
    reader->setProgressBarEnabled(false);
    EXPECT_TRUE(reader->read(data.get()));
    EXPECT_EQ(display.begun, 1);
    Progress::setDisplay(before);
}

TEST(JPEGReaderTest, HeadersAreFoundBehindWhatOtherPartsHold) {
    const SO<MemoryDataResource> data = encoded(*smoothImage(17, 9, LS_RGB));
    std::vector<unsigned char> bytes(bytesOf(*data), bytesOf(*data) + data->size());
    // A part that looks like a frame of a small picture inside, then bytes that fill up.
    const std::vector<unsigned char> part = {0xFF, 0xE1, 0, 14, 0xFF, 0xC0, 0, 11,   8,
                                             0,    1,    0, 1,  1,    9,    9, 0xFF, 0xFF};
    bytes.insert(bytes.begin() + 2, part.begin(), part.end());
    const auto header = JPEGReader::readHeader(resourceOf(bytes.data(), bytes.size()).get());
    ASSERT_TRUE(header);
    EXPECT_EQ(header->width, 17);
    EXPECT_EQ(header->height, 9);
    EXPECT_EQ(header->layerSequence, LS_RGB);
    bool isKnown = false;
    for (unsigned length = 0; length < bytes.size(); ++length) {
        const bool isRead = JPEGReader::readHeader(resourceOf(bytes.data(), length).get()).has_value();
        EXPECT_TRUE(isRead || !isKnown) << "once the frame is there it is known: " << length;
        isKnown = isRead;
    }
    EXPECT_TRUE(isKnown);
}
