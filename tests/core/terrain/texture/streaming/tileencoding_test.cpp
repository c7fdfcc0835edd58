#include "core/terrain/texture/streaming/tileencoding.h"

#include <gtest/gtest.h>

#include <support/recordedreports.h>

#include <nbx/image/compressedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>

#include "streamingtexturefile.h"

using namespace ZMT::CORE;
using NBX::CompressedImage;
using NBX::MemoryImage;
using NBX::SO;
using StreamingTextureFile::Bytes;
using StreamingTextureFile::field;
using ZMT::RASTER::GeoImage;
using Options = StreamingTextureOptions;

namespace {

constexpr StreamingTextureFormat::PlanBox s_patch{10.0, 20.0, 30.0, 25.0};

/// Pixels 3 units wide and 2 deep from (11, 21) on.
SO<GeoImage> placed(NBX::Image * image) {
    return GeoImage::fromOrigin(image, 11.0, 21.0, 3.0, 2.0);
}

/// Every pixel has a colour of its own.
SO<NBX::Image> colours(int width, int height, NBX::LayerSequence layers = NBX::LS_RGBA,
                       int type = NBX::Image::UInt8, int alignment = 1) {
    const SO<NBX::Image> image(new MemoryImage(width, height, layers, type, alignment));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image->setColor(x, y, NBX::Color(float(x) / 15.0F, float(y) / 15.0F, 1.0F, 1.0F));
    return image;
}

class TileEncodingTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(reports.empty()) << reports; }

    Bytes encode(NBX::Image * image, Options::Pixels pixels = Options::P_AsDelivered,
                 unsigned tileSize = 16) {
        const SO<NBX::Image> held(image);
        return TileEncoding::encode(*placed(image), s_patch, tileSize, pixels);
    }
    static std::array<std::uint32_t, 3> shape(const Bytes & block) {
        return {field<std::uint32_t>(block, 16), field<std::uint32_t>(block, 20),
                field<std::uint32_t>(block, 24)};
    }
    static std::array<double, 4> imageBox(const Bytes & block) {
        return {field<double>(block, 64), field<double>(block, 72), field<double>(block, 80),
                field<double>(block, 88)};
    }
    /// The picture, as the reader makes it.
    static SO<NBX::Image> picture(const Bytes & block) {
        const auto [width, height, format] = shape(block);
        EXPECT_EQ(block.size() - 256, StreamingTextureFormat::pixelBytes(format, width, height));
        return StreamingTextureFormat::newImage(format, width, height, block.data() + 256);
    }

    RecordedReports reports;
};

using Shape = std::array<std::uint32_t, 3>;
using Box = std::array<double, 4>;

TEST_F(TileEncodingTest, TheHeaderTellsSizePlaceAndFormat) {
    const Bytes block = encode(colours(5, 3).get());
    EXPECT_EQ(shape(block), Shape({5, 3, 0}));
    EXPECT_EQ(imageBox(block), Box({11.0, 21.0, 23.0, 25.0}));
    EXPECT_EQ(field<double>(block, 32), 10.0);
    EXPECT_EQ(field<double>(block, 40), 20.0);
    EXPECT_EQ(field<double>(block, 48), 30.0);
    EXPECT_EQ(field<double>(block, 56), 25.0);
    EXPECT_EQ(block.size(), 256U + 60U);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) {
            const std::uint8_t * pixel = &block[256 + std::size_t(y * 5 + x) * 4];
            EXPECT_EQ(pixel[0], x * 17) << x << " " << y;
            EXPECT_EQ(pixel[1], y * 17) << x << " " << y;
            EXPECT_EQ(pixel[3], 255);
        }
}

TEST_F(TileEncodingTest, ThePaddingOfLinesIsNotStored) {
    EXPECT_EQ(encode(colours(5, 3, NBX::LS_RGBA, NBX::Image::UInt8, 64).get()), encode(colours(5, 3).get()));
}

TEST_F(TileEncodingTest, OtherLayersAndTypesAreConverted) {
    const Bytes expected = encode(colours(5, 3).get());
    for (const NBX::LayerSequence layers : {NBX::LS_RGB, NBX::LS_BGR, NBX::LS_BGRA})
        EXPECT_EQ(encode(colours(5, 3, layers).get()), expected) << layers;
    EXPECT_EQ(encode(colours(5, 3, NBX::LS_RGBA, NBX::Image::UInt16).get()), expected);
    const Bytes grey = encode(colours(5, 3, NBX::LS_Luminance).get());
    EXPECT_EQ(shape(grey), Shape({5, 3, 7}));
    EXPECT_EQ(grey.size(), 256U + 15U);
    EXPECT_EQ(shape(encode(colours(5, 3, NBX::LS_Luminance, NBX::Image::UInt16).get())), Shape({5, 3, 7}));
}

TEST_F(TileEncodingTest, ThePixelsThatAreAskedFor) {
    EXPECT_EQ(shape(encode(colours(8, 4, NBX::LS_Luminance).get(), Options::P_RGBA)), Shape({8, 4, 0}));
    EXPECT_EQ(shape(encode(colours(8, 4).get(), Options::P_Luminance)), Shape({8, 4, 7}));
    EXPECT_EQ(shape(encode(colours(8, 4).get(), Options::P_DXT1)), Shape({8, 4, 9}));
    EXPECT_EQ(shape(encode(colours(8, 4).get(), Options::P_DXT3)), Shape({8, 4, 8}));
    const SO<NBX::Image> picture = TileEncodingTest::picture(encode(colours(8, 4).get(), Options::P_DXT3));
    for (const int x : {0, 7})
        EXPECT_NEAR(picture->getColor(x, 0)[0], float(x) / 15.0F, 0.1) << x;
}

TEST_F(TileEncodingTest, CompressedImagesKeepTheirBytes) {
    for (const auto & [compression, format] :
         {std::pair(CompressedImage::DXT1A, 9U), std::pair(CompressedImage::DXT3, 8U),
          std::pair(CompressedImage::BGRA5551, 2U), std::pair(CompressedImage::BGRA4444, 1U)}) {
        const SO<CompressedImage> image(new CompressedImage(compression, colours(8, 4).get()));
        const Bytes block = encode(image.get());
        EXPECT_EQ(shape(block), Shape({8, 4, format}));
        ASSERT_EQ(block.size(), 256U + image->dataSize());
        EXPECT_EQ(std::memcmp(block.data() + 256, image->rawData()->pointer(16), image->dataSize()), 0);
    }
}

TEST_F(TileEncodingTest, BlocksAreFilledUpWithNothing) {
    for (const Options::Pixels pixels : {Options::P_DXT1, Options::P_DXT3}) {
        const Bytes block = encode(colours(5, 6).get(), pixels);
        EXPECT_EQ(shape(block)[0], 8U);
        EXPECT_EQ(shape(block)[1], 8U);
        EXPECT_EQ(imageBox(block), Box({11.0, 21.0, 11.0 + 7 * 3.0, 21.0 + 7 * 2.0}));
        const SO<NBX::Image> image = picture(block);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x)
                EXPECT_EQ(image->getColor(x, y)[3] > 0.5F, x < 5 && y < 6) << x << " " << y;
    }
    const SO<CompressedImage> odd(new CompressedImage(CompressedImage::DXT3, colours(5, 6).get()));
    EXPECT_EQ(shape(encode(odd.get())), Shape({8, 8, 8}));
}

TEST_F(TileEncodingTest, ASingleColumnIsTwoOnTheSameGround) {
    const Bytes column = encode(colours(1, 3).get());
    EXPECT_EQ(shape(column), Shape({2, 3, 0}));
    // Half a pixel beyond the centres: 9.5 to 12.5, as before.
    EXPECT_EQ(imageBox(column), Box({10.25, 21.0, 11.75, 25.0}));
    const SO<NBX::Image> image = picture(column);
    for (int y = 0; y < 3; ++y)
        EXPECT_EQ(image->getColor(0, y), image->getColor(1, y));
    const Bytes line = encode(colours(3, 1).get());
    EXPECT_EQ(shape(line), Shape({3, 2, 0}));
    EXPECT_EQ(imageBox(line), Box({11.0, 20.5, 17.0, 21.5}));
    EXPECT_EQ(shape(encode(colours(1, 1, NBX::LS_Luminance).get())), Shape({2, 2, 7}));
}

TEST_F(TileEncodingTest, AnImageThatIsTooLargeIsBlank) {
    EXPECT_EQ(shape(encode(colours(16, 2).get())), Shape({16, 2, 0})) << "just fits";
    for (const auto & image : {colours(17, 2), colours(2, 17)}) {
        const Bytes block = encode(image.get());
        EXPECT_EQ(shape(block), Shape({16, 16, 0}));
        ASSERT_EQ(block.size(), 256U + 16U * 16U * 4U);
        for (std::size_t i = 256; i < block.size(); i += 4)
            ASSERT_EQ(block[i + 3], 0) << "nothing shows, and no byte is left to chance";
        EXPECT_EQ(imageBox(block)[0], 11.0);
    }
    EXPECT_EQ(encode(colours(17, 2).get()), encode(colours(17, 2).get()));
}

} // namespace
