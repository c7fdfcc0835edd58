#include <nbx/image/compressedimage.h>

#include <nbx/data/datasubresource.h>
#include <nbx/data/objectstreamreader.h>
#include <nbx/data/objectstreamwriter.h>
#include <nbx/math/color.h>

#include "support/recordedreports.h"
#include "testimages.h"

using namespace NBX;

namespace {

constexpr CompressedImage::Compression blockFormats[] = {CompressedImage::DXT1, CompressedImage::DXT1A,
                                                         CompressedImage::DXT3, CompressedImage::DXT5};
constexpr CompressedImage::Compression allFormats[] = {
    CompressedImage::DXT1,     CompressedImage::DXT1A,    CompressedImage::DXT3, CompressedImage::DXT5,
    CompressedImage::BGRA5551, CompressedImage::BGRA4444, CompressedImage::JPEG};

/// "CPRS", the header's numbers, and the pixels behind it.
SO<MemoryDataResource> rawData(int compression, int layers, int width, int height,
                               const std::vector<unsigned char> & pixels) {
    std::vector<unsigned char> bytes = {'C', 'P', 'R', 'S'};
    const auto append = [&](int value, int count) {
        for (int i = 0; i < count; ++i)
            bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
    };
    append(compression, 2);
    append(layers, 2);
    append(width, 4);
    append(height, 4);
    bytes.insert(bytes.end(), pixels.begin(), pixels.end());
    return resourceOf(bytes.data(), bytes.size());
}

SO<CompressedImage> fromBlocks(CompressedImage::Compression compression, int width, int height,
                               const std::vector<unsigned char> & pixels) {
    return new CompressedImage(rawData(compression, 0, width, height, pixels).get());
}

std::vector<int> pixelOf(const Image & image, int x, int y) {
    const unsigned char * p = image.pixelComponentsU8(x, y);
    return std::vector<int>(p, p + image.numberOfLayers());
}

std::vector<unsigned char> dataOf(const CompressedImage & image) {
    const unsigned char * start = bytesOf(*image.rawData()) + CompressedImage::headerSize;
    return std::vector<unsigned char>(start, start + image.dataSize());
}

using Ints = std::vector<int>;

} // namespace

TEST(CompressedImageTest, FourColorsOfADXT1Block) {
    // Pure red 0xF800 before pure blue 0x001F: falling order, so there are two mixtures.
    const SO<CompressedImage> image =
        fromBlocks(CompressedImage::DXT1, 4, 4, {0x00, 0xF8, 0x1F, 0x00, 0xE4, 0x00, 0x55, 0x1B});
    EXPECT_EQ(image->layerSequence(), LS_RGB);
    EXPECT_EQ(pixelOf(*image, 0, 0), (Ints{255, 0, 0}));
    EXPECT_EQ(pixelOf(*image, 1, 0), (Ints{0, 0, 255}));
    EXPECT_EQ(pixelOf(*image, 2, 0), (Ints{170, 0, 85}));
    EXPECT_EQ(pixelOf(*image, 3, 0), (Ints{85, 0, 170}));
    EXPECT_EQ(pixelOf(*image, 2, 1), (Ints{255, 0, 0}));
    EXPECT_EQ(pixelOf(*image, 3, 2), (Ints{0, 0, 255}));
    EXPECT_EQ(pixelOf(*image, 0, 3), (Ints{85, 0, 170}));
    EXPECT_EQ(pixelOf(*image, 3, 3), (Ints{255, 0, 0}));
}

TEST(CompressedImageTest, ThreeColorsAndAHoleOfADXT1Block) {
    // Rising order: the mean and, with alpha, a hole.
    const std::vector<unsigned char> block = {0x1F, 0x00, 0x00, 0xF8, 0xE4, 0xE4, 0xE4, 0xE4};
    const SO<CompressedImage> opaque = fromBlocks(CompressedImage::DXT1, 4, 4, block);
    EXPECT_EQ(pixelOf(*opaque, 2, 0), (Ints{127, 0, 127}));
    EXPECT_EQ(pixelOf(*opaque, 3, 0), (Ints{0, 0, 0}));
    const SO<CompressedImage> holed = fromBlocks(CompressedImage::DXT1A, 4, 4, block);
    EXPECT_EQ(holed->layerSequence(), LS_RGBA);
    EXPECT_EQ(pixelOf(*holed, 1, 3), (Ints{255, 0, 0, 255}));
    EXPECT_EQ(pixelOf(*holed, 3, 3), (Ints{0, 0, 0, 0}));
}

TEST(CompressedImageTest, AlphaOfADXT3Block) {
    const SO<CompressedImage> image = fromBlocks(
        CompressedImage::DXT3, 4, 4,
        {0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE, 0x1F, 0x00, 0x00, 0xF8, 0xE4, 0xE4, 0xE4, 0xE4});
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(pixelOf(*image, i % 4, i / 4)[3], 17 * i);
    // The colours of this format have no hole, whatever their order.
    EXPECT_EQ(pixelOf(*image, 3, 0), (Ints{170, 0, 85, 51}));
}

TEST(CompressedImageTest, AlphaOfADXT5Block) {
    // Indices 0 to 7 in the first two lines: 0xFAC688 of 3 bits each.
    const std::vector<unsigned char> tail = {0x88, 0xC6, 0xFA, 0x88, 0xC6, 0xFA, 0, 0, 0, 0, 0, 0, 0, 0};
    std::vector<unsigned char> block = {210, 0};
    block.insert(block.end(), tail.begin(), tail.end());
    const SO<CompressedImage> eight = fromBlocks(CompressedImage::DXT5, 4, 4, block);
    const Ints falling = {210, 0, 180, 150, 120, 90, 60, 30};
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(pixelOf(*eight, i % 4, i / 4)[3], falling[i % 8]) << i;
    block[0] = 10;
    block[1] = 210;
    const SO<CompressedImage> six = fromBlocks(CompressedImage::DXT5, 4, 4, block);
    const Ints rising = {10, 210, 50, 90, 130, 170, 0, 255};
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(pixelOf(*six, i % 4, i / 4)[3], rising[i % 8]) << i;
}

TEST(CompressedImageTest, WordsBeginWithBlueInTheHighestBits) {
    const SO<MemoryImage> pixel(new MemoryImage(1, 1, LS_RGBA));
    pixel->setColor(0, 0, Color(0.0, 1.0, 1.0, 1.0));
    const SO<CompressedImage> five(new CompressedImage(CompressedImage::BGRA5551, pixel.get()));
    std::uint16_t word;
    std::memcpy(&word, dataOf(*five).data(), 2);
    EXPECT_EQ(word, 0b11111'11111'00000'1);
    EXPECT_EQ(five->getColor(0, 0), Color(0.0, 1.0, 1.0, 1.0));
    pixel->setColor(0, 0, Color(1.0, 0.0, 0.0, 0.4));
    const SO<CompressedImage> four(new CompressedImage(CompressedImage::BGRA4444, pixel.get()));
    std::memcpy(&word, dataOf(*four).data(), 2);
    EXPECT_EQ(word, 0x00F6);
    EXPECT_EQ(four->layerSequence(), LS_BGRA);
    EXPECT_EQ(pixelOf(*four, 0, 0), (Ints{0, 0, 255, 102}));
}

TEST(CompressedImageTest, WordsRoundToTheNearestValue) {
    const SO<MemoryImage> image = randomImage(64, 4, LS_BGRA);
    const SO<CompressedImage> five(new CompressedImage(CompressedImage::BGRA5551, image.get()));
    const SO<CompressedImage> four(new CompressedImage(CompressedImage::BGRA4444, image.get()));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 64; ++x) {
            const Ints pixel = pixelOf(*image, x, y), a = pixelOf(*five, x, y), b = pixelOf(*four, x, y);
            for (int c = 0; c < 4; ++c) {
                EXPECT_LE(std::abs(pixel[c] - a[c]), c < 3 ? 4 : 128);
                EXPECT_LE(std::abs(pixel[c] - b[c]), 9);
            }
            EXPECT_EQ(a[3], pixel[3] >= 128 ? 255 : 0);
        }
}

TEST(CompressedImageTest, RawDataHasAHeaderOf16Bytes) {
    const SO<CompressedImage> image(
        new CompressedImage(CompressedImage::DXT3, smoothImage(12, 8, LS_RGB).get(), L"a name"));
    EXPECT_EQ(image->getObjectName(), L"a name");
    EXPECT_EQ(image->compression(), 2);
    EXPECT_EQ(image->dataSize(), 6u * 16u);
    EXPECT_EQ(image->rawData()->size(), 16u + 6u * 16u);
    const unsigned char expected[] = {'C', 'P', 'R', 'S', 2, 0, 0, 0, 12, 0, 0, 0, 8, 0, 0, 0};
    EXPECT_EQ(0, std::memcmp(image->rawData()->pointer(), expected, 16));
    const SO<CompressedImage> again(new CompressedImage(image->rawData().get()));
    EXPECT_TRUE(samePixels(*image, *again));
}

TEST(CompressedImageTest, SizesOfTheData) {
    EXPECT_EQ(CompressedImage::dataSize(CompressedImage::DXT1, 8, 8), 32u);
    EXPECT_EQ(CompressedImage::dataSize(CompressedImage::DXT1, 5, 1), 16u);
    EXPECT_EQ(CompressedImage::dataSize(CompressedImage::DXT5, 8, 8), 64u);
    EXPECT_EQ(CompressedImage::dataSize(CompressedImage::BGRA5551, 5, 3), 30u);
    EXPECT_EQ(CompressedImage::dataSize(CompressedImage::JPEG, 5, 3, LS_RGB), 45u);
    EXPECT_EQ(CompressedImage::dataSize(static_cast<CompressedImage::Compression>(4), 8, 8), 0u);
    EXPECT_EQ(CompressedImage::dataSize(CompressedImage::DXT1, 0, 8), 0u);
}

TEST(CompressedImageTest, SmoothPicturesStayCloseInAllFormats) {
    for (const auto compression : allFormats)
        for (const int size : {1, 2, 3, 4, 7, 32}) {
            SCOPED_TRACE(testing::Message() << "compression " << compression << ", size " << size);
            const SO<MemoryImage> image = smoothImage(size, size + 3, LS_RGB);
            const SO<CompressedImage> compressed(new CompressedImage(compression, image.get()));
            ASSERT_EQ(compressed->dataSize(), CompressedImage::dataSize(compression, size, size + 3, LS_RGB));
            const SO<Image> back(new MemoryImage(size, size + 3, LS_RGB));
            ASSERT_TRUE(back->copy(compressed.get()));
            EXPECT_LT(rootMeanSquare(*image, *back), 6.0);
            EXPECT_EQ(compressed->getColor(0, 0)[3], 1.0F);
        }
}

TEST(CompressedImageTest, PlainColorsKeepTheirColor) {
    for (const auto compression : blockFormats)
        for (const int value : {0, 1, 77, 128, 254, 255}) {
            const SO<MemoryImage> image(new MemoryImage(4, 4, LS_Luminance));
            for (int y = 0; y < 4; ++y)
                std::memset(image->lineComponentsU8(y), value, 4);
            const SO<CompressedImage> compressed(new CompressedImage(compression, image.get()));
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(pixelOf(*compressed, 3, 3)[c], value, 2) << compression;
        }
}

TEST(CompressedImageTest, AlphaStaysClose) {
    SO<MemoryImage> image = smoothImage(32, 32, LS_RGBA);
    for (const auto compression : {CompressedImage::DXT3, CompressedImage::DXT5}) {
        const SO<CompressedImage> compressed(new CompressedImage(compression, image.get()));
        for (int y = 0; y < 32; ++y)
            for (int x = 0; x < 32; ++x)
                EXPECT_NEAR(pixelOf(*compressed, x, y)[3], pixelOf(*image, x, y)[3], 12) << compression;
    }
}

TEST(CompressedImageTest, HolesAreExact) {
    const SO<MemoryImage> image = smoothImage(16, 16, LS_RGBA);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            *image->pixelComponentsU8(x, y, 3) = static_cast<unsigned char>(x * x + y * y < 100 ? 0 : 200);
    const SO<CompressedImage> compressed(new CompressedImage(CompressedImage::DXT1A, image.get()));
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) {
            const bool hole = x * x + y * y < 100;
            const Ints found = pixelOf(*compressed, x, y), wanted = pixelOf(*image, x, y);
            EXPECT_EQ(found[3], hole ? 0 : 255);
            for (int c = 0; !hole && c < 3; ++c)
                EXPECT_NEAR(found[c], wanted[c], 40);
        }
}

TEST(CompressedImageTest, FlipYIsExactForWholeAndSingleBlocks) {
    for (const auto compression : allFormats)
        for (const int height : {1, 2, 3, 4, 8, 12}) {
            const SO<MemoryImage> image = randomImage(6, height, LS_RGBA);
            const SO<CompressedImage> compressed(new CompressedImage(compression, image.get()));
            const SO<Image> before = compressed->uncompressed(true);
            const SO<DataResource> raw = compressed->rawData();
            compressed->flipY();
            EXPECT_NE(compressed->rawData(), raw) << "shared data must not change";
            before->flip(false, true);
            EXPECT_TRUE(samePixels(*compressed, *before)) << compression << ", " << height;
            compressed->flipY();
            before->flip(false, true);
            EXPECT_TRUE(samePixels(*compressed, *before)) << compression << ", " << height;
        }
}

TEST(CompressedImageTest, FlipOfPartBlocksStaysClose) {
    const SO<MemoryImage> image = smoothImage(9, 6, LS_RGB);
    const SO<CompressedImage> compressed(new CompressedImage(CompressedImage::DXT1, image.get()));
    compressed->flipY();
    image->flip(false, true);
    EXPECT_LT(rootMeanSquare(*compressed, *image), 6.0);
    compressed->flip(true, true);
    image->flip(true, true);
    EXPECT_LT(rootMeanSquare(*compressed, *image), 8.0);
}

TEST(CompressedImageTest, MipmapsAreCompressedAlike) {
    const SO<MemoryImage> image = smoothImage(16, 4, LS_RGB);
    const SO<CompressedImage> compressed(new CompressedImage(CompressedImage::DXT1, image.get()));
    const std::vector<SO<Image>> levels = compressed->createMipmapPyramid();
    ASSERT_EQ(levels.size(), 5u);
    for (const SO<Image> & level : levels) {
        const SO<CompressedImage> one = soCast<CompressedImage>(level);
        ASSERT_TRUE(one);
        EXPECT_EQ(one->compression(), CompressedImage::DXT1);
        const SO<Image> expected(new MemoryImage(level->width(), level->height(), LS_RGB));
        expected->copy(image.get());
        EXPECT_LT(rootMeanSquare(*level, *expected), 8.0);
    }
}

TEST(CompressedImageTest, JPEGMarkerHoldsTheDecodedPixels) {
    const SO<MemoryImage> image = randomImage(5, 3, LS_RGB, Image::UInt8, 8);
    const SO<CompressedImage> compressed(new CompressedImage(CompressedImage::JPEG, image.get(), L""));
    EXPECT_EQ(compressed->compression(), 7);
    EXPECT_EQ(compressed->dataSize(), 45u);
    EXPECT_EQ(compressed->layerSequence(), LS_RGB);
    EXPECT_TRUE(samePixels(*compressed, *image));
}

TEST(CompressedImageTest, NothingToCompressIsReported) {
    RecordedReports reports;
    const SO<CompressedImage> none(new CompressedImage(CompressedImage::DXT1, nullptr));
    EXPECT_EQ(reports.count(0, L"hasPixels", L"no image"), 1u);
    EXPECT_EQ(none->dataSize(), 0u);
    EXPECT_EQ(none->rawData(), nullptr);
    EXPECT_EQ(none->lineComponents(0), nullptr);
    EXPECT_TRUE(none->createMipmapPyramid().empty());
    none->flipY();
    reports.clear();
    const SO<MemoryImage> image = randomImage(4, 4, LS_RGB);
    const SO<CompressedImage> unknown(
        new CompressedImage(static_cast<CompressedImage::Compression>(4), image.get()));
    EXPECT_EQ(reports.last().message, L"unknown compression: 4");
    EXPECT_EQ(unknown->dataSize(), 0u);
}

TEST(CompressedImageTest, IsReadOnly) {
    RecordedReports reports;
    const SO<CompressedImage> image(
        new CompressedImage(CompressedImage::DXT1, smoothImage(4, 4, LS_RGB).get()));
    image->setColor(0, 0, Color::white);
    EXPECT_EQ(reports.count(0, L"isWritable()", L"image is read only"), 1u);
    EXPECT_FALSE(image->copy(image->uncompressed(true).get()));
}

TEST(CompressedImageTest, UnusableDataAreRefused) {
    const std::vector<unsigned char> block(8);
    struct Case {
        const char * name;
        SO<MemoryDataResource> data;
    };
    const Case cases[] = {{"too short", rawData(0, 0, 4, 4, std::vector<unsigned char>(7))},
                          {"no width", rawData(0, 0, 0, 4, block)},
                          {"negative height", rawData(0, 0, 4, -4, block)},
                          {"large", rawData(0, 0, 65537, 4, block)},
                          {"larger than its bytes", rawData(0, 0, 65536, 65536, block)},
                          {"unknown compression", rawData(4, 0, 4, 4, block)},
                          {"compression above all", rawData(8, 0, 4, 4, block)},
                          {"unknown layers", rawData(7, 5, 1, 1, block)}};
    for (const Case & c : cases) {
        RecordedReports reports;
        const SO<CompressedImage> image(new CompressedImage(c.data.get()));
        EXPECT_EQ(image->dataSize(), 0u) << c.name;
        EXPECT_EQ(image->width(), 0) << c.name;
        EXPECT_EQ(reports.last().level, 2) << c.name;
    }
    const SO<MemoryDataResource> sound = rawData(0, 0, 4, 4, block);
    for (unsigned size = 0; size < sound->size(); ++size) {
        RecordedReports reports;
        const SO<CompressedImage> image(new CompressedImage(resourceOf(bytesOf(*sound), size).get()));
        EXPECT_EQ(image->dataSize(), 0u) << size;
    }
    EXPECT_EQ(SO<CompressedImage>(new CompressedImage(sound.get()))->dataSize(), 8u);
}

TEST(CompressedImageTest, ReadsDataThatAreNotAligned) {
    const SO<CompressedImage> image(
        new CompressedImage(CompressedImage::BGRA4444, smoothImage(4, 4, LS_RGB).get()));
    std::vector<unsigned char> shifted(1 + image->rawData()->size());
    std::memcpy(shifted.data() + 1, image->rawData()->pointer(), image->rawData()->size());
    const SO<MemoryDataResource> all = resourceOf(shifted.data(), shifted.size());
    const SO<DataSubResource> part(new DataSubResource(all.get(), 1, image->rawData()->size(), false));
    EXPECT_TRUE(samePixels(*SO<CompressedImage>(new CompressedImage(part.get())), *image));
}

TEST(CompressedImageTest, IsStoredWithItsData) {
    const SO<CompressedImage> image(
        new CompressedImage(CompressedImage::DXT5, smoothImage(9, 6, LS_RGBA).get()));
    const std::vector<std::uint8_t> bytes = ObjectStreamWriter::write(*image);
    const SO<CompressedImage> back =
        soCast<CompressedImage>(ObjectStreamReader(bytes.data(), bytes.size()).read());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->compression(), CompressedImage::DXT5);
    EXPECT_TRUE(samePixels(*image, *back));
}
