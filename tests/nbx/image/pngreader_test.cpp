#include <nbx/image/pngreader.h>

#include <nbx/data/zlibfilter.h>
#include <nbx/image/pngwriter.h>

#include "codectest.h"

using namespace NBX;

namespace {

SO<Image> decodePng(const DataResource * data) {
    return SO<PNGReader>(new PNGReader())->read(data);
}

void appendNumber(std::vector<unsigned char> & bytes, unsigned long value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<unsigned char>(value >> shift));
}

/// Bit by bit, with the polynomial of the format.
unsigned long checksum(const unsigned char * bytes, std::size_t count) {
    std::uint32_t crc = ~0U;
    for (std::size_t i = 0; i < count; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320U : 0U);
    }
    return ~crc;
}

void appendChunk(std::vector<unsigned char> & file, const char * type,
                 const std::vector<unsigned char> & data) {
    appendNumber(file, data.size());
    const std::size_t start = file.size();
    file.insert(file.end(), type, type + 4);
    file.insert(file.end(), data.begin(), data.end());
    appendNumber(file, checksum(file.data() + start, file.size() - start));
}

/// A PNG file around lines that already begin with their filter.
std::vector<unsigned char>
pngFile(unsigned width, unsigned height, int depth, int colorType, const std::vector<unsigned char> & lines,
        const std::vector<std::pair<const char *, std::vector<unsigned char>>> & chunks = {}) {
    std::vector<unsigned char> file = {0x89, 'P', 'N', 'G', 13, 10, 26, 10}, header;
    appendNumber(header, width);
    appendNumber(header, height);
    for (const int b : {depth, colorType, 0, 0, 0})
        header.push_back(static_cast<unsigned char>(b));
    appendChunk(file, "IHDR", header);
    for (const auto & [type, data] : chunks)
        appendChunk(file, type, data);
    const SO<DataResource> packed =
        ZLibFilter::compress(lines.data(), static_cast<unsigned>(lines.size()), 6);
    appendChunk(file, "IDAT", {bytesOf(*packed), bytesOf(*packed) + packed->size()});
    appendChunk(file, "IEND", {});
    return file;
}

SO<Image> readFile(const std::vector<unsigned char> & file) {
    return decodePng(resourceOf(file.data(), file.size()).get());
}

std::vector<int> lineOf(const Image & image, int y) {
    const unsigned char * line = image.lineComponentsU8(y);
    return std::vector<int>(line, line + image.width() * image.numberOfLayers());
}

using Ints = std::vector<int>;

} // namespace

TEST(PNGReaderTest, PalettesBecomeColors) {
    const std::vector<unsigned char> palette = {255, 0, 0, 0, 255, 0, 1, 2, 3};
    // Two lines of 3 pixels of 2 bits: indices 0 1 2 at the top, 2 2 0 below.
    const SO<Image> image =
        readFile(pngFile(3, 2, 2, 3, {0, 0b00011000, 0, 0b10100000}, {{"PLTE", palette}}));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->layerSequence(), LS_RGB);
    EXPECT_EQ(lineOf(*image, 1), (Ints{255, 0, 0, 0, 255, 0, 1, 2, 3}));
    EXPECT_EQ(lineOf(*image, 0), (Ints{1, 2, 3, 1, 2, 3, 255, 0, 0}));
}

TEST(PNGReaderTest, TransparentColorsBecomeAlpha) {
    const SO<Image> palette = readFile(pngFile(
        2, 1, 8, 3, {0, 0, 1}, {{"PLTE", {9, 8, 7, 6, 5, 4}}, {"tRNS", std::vector<unsigned char>{40}}}));
    ASSERT_TRUE(palette);
    EXPECT_EQ(palette->layerSequence(), LS_RGBA);
    EXPECT_EQ(lineOf(*palette, 0), (Ints{9, 8, 7, 40, 6, 5, 4, 255}));
    const SO<Image> grey = readFile(pngFile(2, 1, 8, 0, {0, 50, 60}, {{"tRNS", {0, 60}}}));
    ASSERT_TRUE(grey);
    EXPECT_EQ(grey->layerSequence(), LS_LuminanceAlpha);
    EXPECT_EQ(lineOf(*grey, 0), (Ints{50, 255, 60, 0}));
}

TEST(PNGReaderTest, HeadersTellWhatReadingGives) {
    const std::vector<unsigned char> palette = {9, 8, 7, 6, 5, 4}, alpha = {40};
    for (const auto & file :
         {pngFile(2, 1, 8, 3, {0, 0, 1}, {{"PLTE", palette}}),
          pngFile(2, 1, 8, 3, {0, 0, 1}, {{"PLTE", palette}, {"tRNS", alpha}}),
          pngFile(2, 1, 8, 0, {0, 50, 60}), pngFile(2, 1, 8, 0, {0, 50, 60}, {{"tRNS", {0, 60}}}),
          pngFile(1, 1, 8, 2, {0, 1, 2, 3}),
          pngFile(1, 1, 8, 2, {0, 1, 2, 3}, {{"tRNS", {0, 1, 0, 2, 0, 3}}}), pngFile(1, 1, 8, 4, {0, 1, 2}),
          pngFile(1, 1, 8, 6, {0, 1, 2, 3, 4}), pngFile(2, 1, 16, 0, {0, 0x12, 0x34, 0xFF, 0xFE}),
          pngFile(8, 1, 1, 0, {0, 0b10110001})}) {
        const auto header = PNGReader::readHeader(resourceOf(file.data(), file.size()).get());
        const SO<Image> image = readFile(file);
        ASSERT_TRUE(header && image);
        EXPECT_EQ(header->width, image->width());
        EXPECT_EQ(header->height, image->height());
        EXPECT_EQ(header->layerSequence, image->layerSequence());
        EXPECT_EQ(header->dataType, image->dataType());
    }
}

TEST(PNGReaderTest, FewBitsAreWidened) {
    const SO<Image> image = readFile(pngFile(8, 1, 1, 0, {0, 0b10110001}));
    ASSERT_TRUE(image);
    EXPECT_EQ(lineOf(*image, 0), (Ints{255, 0, 255, 255, 0, 0, 0, 255}));
}

TEST(PNGReaderTest, SixteenBitsKeepTheirValue) {
    const SO<Image> image = readFile(pngFile(2, 1, 16, 0, {0, 0x12, 0x34, 0xFF, 0xFE}));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->dataType(), Image::UInt16);
    const auto * values = static_cast<const std::uint16_t *>(image->lineComponents(0));
    EXPECT_EQ(values[0], 0x1234);
    EXPECT_EQ(values[1], 0xFFFE);
}

TEST(PNGReaderTest, OtherDataGiveNull) {
    EXPECT_EQ(decodePng(nullptr), nullptr);
    EXPECT_EQ(decodePng(SO<MemoryDataResource>(new MemoryDataResource(0)).get()), nullptr);
    EXPECT_EQ(decodePng(SO<MemoryDataResource>(new MemoryDataResource(100)).get()), nullptr);
}

TEST(PNGReaderTest, EveryBeginningGivesNull) {
    const SO<PNGWriter> writer(new PNGWriter());
    expectNoImageFromAnyBeginning(*writer->write(randomImage(9, 7, LS_RGBA).get()), decodePng);
    expectNoImageFromAnyBeginning(*writer->write(randomImage(3, 5, LS_Luminance, Image::UInt16).get()),
                                  decodePng);
}

TEST(PNGReaderTest, ChangedBytesAreHarmless) {
    expectChangedBytesAreHarmless(*SO<PNGWriter>(new PNGWriter())->write(smoothImage(19, 17, LS_RGB).get()),
                                  decodePng);
}

TEST(PNGReaderTest, ChangedBytesUnderARightChecksumAreHarmless) {
    std::mt19937 random(3);
    for (int i = 0; i < 3000; ++i) {
        std::vector<unsigned char> lines(random() % 40);
        for (unsigned char & b : lines)
            b = static_cast<unsigned char>(random());
        const int depth = 1 << random() % 5, color = static_cast<int>(random() % 7);
        std::vector<unsigned char> palette(3 * (random() % 20));
        const SO<Image> image = readFile(pngFile(random() % 12, random() % 6, depth, color, lines,
                                                 {{"PLTE", palette}, {"tRNS", {1, 2, 3}}}));
        if (image) {
            EXPECT_TRUE(image->copyToPow2(4));
        }
    }
}

TEST(PNGReaderTest, SizesThatTheDataCannotHoldAreRefused) {
    EXPECT_EQ(readFile(pngFile(1000000, 1000000, 8, 6, {0, 0, 0, 0, 0})), nullptr);
    EXPECT_EQ(readFile(pngFile(0x7FFFFFFF, 1, 1, 0, {0, 0})), nullptr);
    EXPECT_EQ(readFile(pngFile(0, 1, 8, 0, {0, 0})), nullptr);
}
