#include "nbx/image/dxt1encoder.h"

#include <nbx/image/compressedimage.h>

#include "testimages.h"

using namespace NBX;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes blocksOf(const Image & image, const DXT1Encoder::PixelForm & form,
               DXT1Encoder::Instructions instructions) {
    Bytes blocks(8 * static_cast<std::size_t>((image.width() + 3) / 4));
    std::array<const unsigned char *, 4> lines{};
    for (int i = 0; i < 4; ++i)
        lines[static_cast<std::size_t>(i)] = image.lineComponentsU8(std::min(i, image.height() - 1));
    DXT1Encoder::encodeRow(lines, form, image.width(), blocks.data(), instructions);
    return blocks;
}

Bytes blocksOf(const Image & image) {
    return blocksOf(image, {image.numberOfLayers(), {0, 1, 2}}, DXT1Encoder::Instructions::Best);
}

/// Peak of signal to noise in decibels, after one way through blocks.
double quality(const Image & image, CompressedImage::Compression compression) {
    const SO<CompressedImage> compressed(new CompressedImage(compression, &image));
    const SO<MemoryImage> back(new MemoryImage(image.width(), image.height(), LS_RGB));
    back->copy(compressed.get());
    return 20.0 * std::log10(255.0 / rootMeanSquare(image, *back));
}

/// Something like a photo of a house: planes of slightly different colours, edges and grain.
SO<MemoryImage> facade(int size, int grain) {
    SO<MemoryImage> image(new MemoryImage(size, size, LS_RGB));
    std::mt19937 random(5);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const bool window = x % 37 < 17 && y % 53 < 29;
            const int noise = grain ? static_cast<int>(random() % static_cast<unsigned>(grain)) : 0;
            const double light = 0.7 + 0.3 * std::sin(0.01 * x + 0.02 * y);
            const double wall[3] = {200, 170, 130}, pane[3] = {60, 80, 120};
            for (int c = 0; c < 3; ++c)
                *image->pixelComponentsU8(x, y, c) = static_cast<unsigned char>(
                    std::min(255.0, light * (window ? pane : wall)[c] + noise * (c == 2 ? 0.5 : 1.0)));
        }
    return image;
}

} // namespace

TEST(DXT1EncoderTest, BytesDoNotDependOnTheProcessor) {
    for (unsigned seed = 0; seed < 200; ++seed) {
        const SO<MemoryImage> noise = randomImage(256, 4, LS_RGB, Image::UInt8, 1, seed);
        const SO<MemoryImage> smooth = smoothImage(256, 4 + static_cast<int>(seed), LS_RGB);
        for (const Image * image : {noise.get(), smooth.get()})
            ASSERT_EQ(blocksOf(*image, {3, {0, 1, 2}}, DXT1Encoder::Instructions::Best),
                      blocksOf(*image, {3, {0, 1, 2}}, DXT1Encoder::Instructions::Portable))
                << seed;
    }
}

TEST(DXT1EncoderTest, LayersMayStandInAnyOrder) {
    const SO<MemoryImage> image = smoothImage(40, 4, LS_RGB);
    const Bytes expected = blocksOf(*image);
    for (const auto & [sequence, colours] :
         {std::pair(LS_BGR, std::array<int, 3>{2, 1, 0}), {LS_BGRA, {2, 1, 0}}, {LS_RGBA, {0, 1, 2}}}) {
        const SO<MemoryImage> other(new MemoryImage(40, 4, sequence));
        other->copy(image.get());
        EXPECT_EQ(blocksOf(*other, {other->numberOfLayers(), colours}, DXT1Encoder::Instructions::Best),
                  expected)
            << sequence;
        EXPECT_EQ(0,
                  std::memcmp(expected.data(),
                              static_cast<const unsigned char *>(
                                  SO<CompressedImage>(new CompressedImage(CompressedImage::DXT1, other.get()))
                                      ->rawData()
                                      ->pointer()) +
                                  16,
                              expected.size()))
            << sequence;
    }
}

TEST(DXT1EncoderTest, PixelsBeyondTheEdgeRepeatTheLastOne) {
    for (const int width : {1, 2, 3, 5, 31, 33, 35, 61}) {
        const SO<MemoryImage> image = randomImage(width, 4, LS_RGB);
        const int whole = (width + 3) / 4 * 4;
        const SO<MemoryImage> padded(new MemoryImage(whole, 4, LS_RGB));
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < whole; ++x)
                std::memcpy(padded->pixelComponents(x, y), image->pixelComponents(std::min(x, width - 1), y),
                            3);
        EXPECT_EQ(blocksOf(*image), blocksOf(*padded)) << width;
    }
}

TEST(DXT1EncoderTest, TwoColorsThatBlocksCanHoldAreExact) {
    const SO<MemoryImage> image(new MemoryImage(4, 4, LS_RGB));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            std::memcpy(image->pixelComponents(x, y), (x + y) % 2 ? "\xFF\x00\x00" : "\x00\x00\xFF", 3);
    // Red is the larger number of 16 bits, and the first colour; pixels of it have index 0.
    EXPECT_EQ(blocksOf(*image), (Bytes{0x00, 0xF8, 0x1F, 0x00, 0x11, 0x44, 0x11, 0x44}));
}

TEST(DXT1EncoderTest, FourColorsOnALineAreExact) {
    const SO<MemoryImage> image(new MemoryImage(4, 4, LS_RGB));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            std::memset(image->pixelComponents(x, y), 85 * ((x + y) % 4), 3);
    const SO<CompressedImage> compressed(new CompressedImage(CompressedImage::DXT1, image.get()));
    EXPECT_TRUE(samePixels(*image, *compressed));
}

TEST(DXT1EncoderTest, PlainColorsComeAsNearAsTwoColorsCan) {
    for (int value = 0; value < 256; ++value) {
        const SO<MemoryImage> image(new MemoryImage(4, 4, LS_RGB));
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x) {
                const unsigned char pixel[] = {static_cast<unsigned char>(value),
                                               static_cast<unsigned char>(255 - value),
                                               static_cast<unsigned char>(value / 2)};
                std::memcpy(image->pixelComponents(x, y), pixel, 3);
            }
        const SO<CompressedImage> compressed(new CompressedImage(CompressedImage::DXT1, image.get()));
        for (int c = 0; c < 3; ++c)
            EXPECT_LE(std::abs(*compressed->pixelComponentsU8(2, 2, c) - *image->pixelComponentsU8(2, 2, c)),
                      1)
                << value << ", " << c;
    }
}

TEST(DXT1EncoderTest, IsAsGoodAsTheSlowEncoder) {
    // What has alpha of one bit goes through the other encoder, in its slowest mode.
    for (const int grain : {0, 8, 40}) {
        const SO<MemoryImage> image = facade(256, grain);
        EXPECT_GT(quality(*image, CompressedImage::DXT1), quality(*image, CompressedImage::DXT1A) - 0.07)
            << grain;
    }
    const SO<MemoryImage> noise = randomImage(128, 128, LS_RGB), smooth = smoothImage(128, 128, LS_RGB);
    for (const Image * image : {noise.get(), smooth.get()})
        EXPECT_GT(quality(*image, CompressedImage::DXT1), quality(*image, CompressedImage::DXT1A) - 0.07);
}

TEST(DXT1EncoderTest, NoBlockHasABlackFourthColor) {
    const SO<MemoryImage> images[] = {randomImage(512, 4, LS_RGB), smoothImage(512, 4, LS_RGB),
                                      facade(256, 3)};
    for (const auto & image : images) {
        const Bytes blocks = blocksOf(*image);
        for (std::size_t i = 0; i < blocks.size(); i += 8) {
            const int first = blocks[i] | blocks[i + 1] << 8, second = blocks[i + 2] | blocks[i + 3] << 8;
            EXPECT_GE(first, second);
            if (first == second) {
                EXPECT_EQ(0, blocks[i + 4] | blocks[i + 5] | blocks[i + 6] | blocks[i + 7]);
            }
        }
    }
}
