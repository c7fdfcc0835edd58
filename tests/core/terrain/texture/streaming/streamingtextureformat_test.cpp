#include "core/terrain/texture/streaming/streamingtextureformat.h"

#include <cstring>
#include <limits>
#include <numeric>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

#include <nbx/image/compressedimage.h>
#include <nbx/image/decoratedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>

#include "streamingtexturefile.h"

using namespace ZMT::CORE::StreamingTextureFormat;
using NBX::CompressedImage;
using NBX::MemoryImage;
using NBX::SO;
using Bytes = StreamingTextureFile::Bytes;

namespace {

constexpr const wchar_t s_notImplemented[] =
    L"compression for the specified pixel format has not been implemented yet";

class StreamingTextureFormatTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(reports.empty()) << reports; }

    RecordedReports reports;
};

/// A block that is sound, at offset 1024 of a stream of 4096 bytes.
struct SoundTile {
    SoundTile() {
        header.width = 3;
        header.height = 2;
        header.patch = {0.0, 0.0, 4.0, 2.0};
        header.image = {-1.0, -1.0, 5.0, 3.0};
    }
    bool isSound() const { return header.isSound({1024, 512, 512}, 4096); }

    TileHeader header = TileHeader::blank();
};

TEST_F(StreamingTextureFormatTest, WholeWordsAreScrambledAndTheTailIsNot) {
    constexpr std::uint64_t key = 0x0123456789abcdefULL;
    for (std::size_t size = 0; size < 26; ++size) {
        Bytes bytes(size);
        std::iota(bytes.begin(), bytes.end(), std::uint8_t(1));
        const Bytes plain = bytes;
        scramble(bytes.data(), bytes.size(), key);
        EXPECT_EQ(bytes, StreamingTextureFile::scrambled(plain, key)) << size;
        for (std::size_t i = 0; i < size; ++i)
            EXPECT_EQ(bytes[i] == plain[i], i >= size / 8 * 8) << i << " of " << size;
        scramble(bytes.data(), bytes.size(), key);
        EXPECT_EQ(bytes, plain) << "twice is as never";
        scramble(bytes.data(), bytes.size(), 0);
        EXPECT_EQ(bytes, plain);
    }
}

TEST_F(StreamingTextureFormatTest, TheFirstByteMeetsTheLowestOfTheKey) {
    Bytes bytes(8);
    scramble(bytes.data(), bytes.size(), 0x0807060504030201ULL);
    EXPECT_EQ(bytes, Bytes({1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(StreamingTextureFormatTest, BitsOfAPixel) {
    const unsigned bits[] = {32, 16, 16, 8, 16, 8, 8, 8, 8, 4, 16, 32};
    for (unsigned i = 0; i < 12; ++i)
        EXPECT_EQ(bitsPerPixel(i), bits[i]) << i;
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_EQ(bitsPerPixel(12), 0U);
    EXPECT_EQ(bitsPerPixel(0xffffffffU), 0U);
    EXPECT_EQ(reports.count(0, L"false", L"unsupported pixel format"), 2U) << reports;
    reports.clear();
}

TEST_F(StreamingTextureFormatTest, BytesOfThePixelsDoNotOverflow) {
    EXPECT_EQ(pixelBytes(0, 5, 3), 60U);
    EXPECT_EQ(pixelBytes(9, 8, 4), 16U);
    EXPECT_EQ(pixelBytes(9, 5, 3), 16U) << "whole blocks";
    EXPECT_EQ(pixelBytes(8, 5, 3), 32U);
    EXPECT_EQ(pixelBytes(0, 65536, 65536), std::uint64_t(1) << 34);
}

TEST_F(StreamingTextureFormatTest, TheFormatOfAnImageIsThatOfItsKind) {
    const auto plain = [](NBX::LayerSequence layers, int type = NBX::Image::UInt8) {
        return SO<NBX::Image>(new MemoryImage(4, 4, layers, type));
    };
    EXPECT_EQ(formatOf(plain(NBX::LS_Luminance).get()), 7U);
    EXPECT_EQ(formatOf(plain(NBX::LS_Luminance, NBX::Image::Float).get()), 7U);
    for (const auto layers : {NBX::LS_LuminanceAlpha, NBX::LS_RGB, NBX::LS_RGBA, NBX::LS_Alpha, NBX::LS_BGRA})
        EXPECT_EQ(formatOf(plain(layers).get()), 0U) << layers;
    const std::pair<CompressedImage::Compression, unsigned> compressions[] = {{CompressedImage::DXT1A, 9},
                                                                              {CompressedImage::DXT3, 8},
                                                                              {CompressedImage::BGRA5551, 2},
                                                                              {CompressedImage::BGRA4444, 1}};
    for (const auto & [compression, format] : compressions) {
        const SO<NBX::Image> image(new CompressedImage(compression, plain(NBX::LS_RGBA).get()));
        EXPECT_EQ(formatOf(image.get()), format);
        const SO<NBX::Image> decorated(new NBX::DecoratedImage(image.get()));
        EXPECT_EQ(formatOf(decorated.get()), format);
    }
}

TEST_F(StreamingTextureFormatTest, ImagesWithoutAFormatAreReported) {
    const SO<NBX::Image> plain(new MemoryImage(4, 4, NBX::LS_RGBA));
    formatOf(SO<NBX::Image>(new CompressedImage(CompressedImage::DXT1, plain.get())).get());
    formatOf(SO<NBX::Image>(new CompressedImage(CompressedImage::DXT5, plain.get())).get());
    EXPECT_EQ(reports.count(0, L"false", L"not supported compression scheme"), 2U) << reports;
    formatOf(nullptr);
    EXPECT_EQ(reports.count(0, L"image", L"no image"), 1U) << reports;
    EXPECT_EQ(reports.size(), 3U) << reports;
    reports.clear();
}

TEST_F(StreamingTextureFormatTest, EveryFormatGivesBackItsBytes) {
    for (const unsigned format : {0U, 1U, 2U, 4U, 7U, 8U, 9U, 10U, 11U}) {
        Bytes bytes(pixelBytes(format, 8, 4));
        std::iota(bytes.begin(), bytes.end(), std::uint8_t(format));
        const SO<NBX::Image> image = newImage(format, 8, 4, bytes.data());
        ASSERT_TRUE(image) << format;
        EXPECT_EQ(image->width(), 8);
        EXPECT_EQ(image->height(), 4);
        const SO<NBX::DataResource> back = pixelsOf(*image, PixelFormat(format));
        ASSERT_EQ(back->size(), bytes.size()) << format;
        EXPECT_EQ(std::memcmp(back->pointer(), bytes.data(), bytes.size()), 0) << format;
    }
}

TEST_F(StreamingTextureFormatTest, TheKindsOfImages) {
    const Bytes bytes(256);
    struct {
        unsigned format;
        int layers, type, compression;
    } const kinds[] = {{0, 4, 1, -1}, {1, 11, 1, 6}, {2, 11, 1, 5},  {4, 2, 1, -1},  {7, 1, 1, -1},
                       {8, 4, 1, 2},  {9, 4, 1, 1},  {10, 1, 8, -1}, {11, 1, 16, -1}};
    for (const auto & kind : kinds) {
        const SO<NBX::Image> image = newImage(kind.format, 4, 4, bytes.data());
        ASSERT_TRUE(image) << kind.format;
        EXPECT_EQ(image->layerSequence(), kind.layers) << kind.format;
        EXPECT_EQ(image->dataType(), kind.type) << kind.format;
        const auto * compressed = dynamic_cast<const CompressedImage *>(image.get());
        EXPECT_EQ(compressed ? int(compressed->compression()) : -1, kind.compression) << kind.format;
        EXPECT_EQ(image->alignment(), 1);
    }
}

TEST_F(StreamingTextureFormatTest, FormatsWithoutImagesAreReported) {
    const Bytes bytes(256);
    for (const unsigned format : {3U, 5U, 6U})
        EXPECT_FALSE(newImage(format, 4, 4, bytes.data())) << format;
    EXPECT_EQ(reports.count(3, L"L\"Not implemented\"", s_notImplemented), 3U) << reports;
    reports.clear();
    for (const unsigned format : {12U, 255U, 0x80000000U})
        EXPECT_FALSE(newImage(format, 4, 4, bytes.data())) << format;
    EXPECT_EQ(reports.count(0, L"false", L"unsupported pixel format"), 3U) << reports;
    EXPECT_EQ(reports.size(), 3U) << reports;
    reports.clear();
}

TEST_F(StreamingTextureFormatTest, WhatMakesAStreamHeaderSound) {
    StreamHeader header = StreamHeader::blank();
    header.dataSize = 4096;
    header.root = {1024, 600, 512};
    EXPECT_TRUE(header.isSound(4096));
    EXPECT_FALSE(header.isSound(4095)) << "cut";
    EXPECT_TRUE(header.isSound(5000));

    const auto with = [&](auto change) {
        StreamHeader changed = header;
        change(changed);
        return changed.isSound(4096);
    };
    EXPECT_FALSE(with([](auto & h) { h.magic[7] = 'X'; }));
    EXPECT_FALSE(with([](auto & h) { h.reserved0 = 1; }));
    EXPECT_FALSE(with([](auto & h) { h.dataSize = std::numeric_limits<std::uint64_t>::max(); }));
    EXPECT_FALSE(with([](auto & h) { h.root = TileRef(); }));
    EXPECT_FALSE(with([](auto & h) { h.root.rawSize = 256; })) << "no pixels";
    EXPECT_FALSE(with([](auto & h) { h.root.storedSize = 0; }));
    EXPECT_FALSE(with([](auto & h) { h.root.offset = 255; })) << "in the header";
    EXPECT_FALSE(with([](auto & h) { h.root.offset = 4096 - 511; })) << "beyond the end";
    EXPECT_FALSE(with([](auto & h) { h.root.offset = ~std::uint64_t(0); }));
    EXPECT_FALSE(with([](auto & h) { h.root.rawSize = 0xffffffffU; })) << "more than 512 bytes inflate to";
    EXPECT_TRUE(with([](auto & h) { h.root.offset = 4096 - 512; }));
}

TEST_F(StreamingTextureFormatTest, WhatMakesATileSound) {
    EXPECT_TRUE(SoundTile().isSound());
    const auto with = [](auto change) {
        SoundTile tile;
        change(tile.header);
        return tile.isSound();
    };
    EXPECT_FALSE(with([](auto & h) { h.magic[0] = 'z'; }));
    EXPECT_FALSE(with([](auto & h) { h.reserved0 = std::uint64_t(1) << 63; }));
    for (const double bad :
         {std::numeric_limits<double>::quiet_NaN(), 1e101, -1e300, std::numeric_limits<double>::infinity()}) {
        EXPECT_FALSE(with([=](auto & h) { h.patch.minX = bad; })) << bad;
        EXPECT_FALSE(with([=](auto & h) { h.patch.maxY = bad; })) << bad;
        EXPECT_FALSE(with([=](auto & h) { h.image.minY = bad; })) << bad;
        EXPECT_FALSE(with([=](auto & h) { h.image.maxX = bad; })) << bad;
    }
    EXPECT_FALSE(with([](auto & h) { h.image.maxX = h.image.minX; }));
    EXPECT_FALSE(with([](auto & h) { h.image.maxY = h.image.minY; }));
    EXPECT_FALSE(with([](auto & h) { h.patch.maxX = h.patch.minX; }));
    for (const std::uint32_t bad : {0U, 1U, 16385U, 0xffffffffU}) {
        EXPECT_FALSE(with([=](auto & h) { h.width = bad; })) << bad;
        EXPECT_FALSE(with([=](auto & h) { h.height = bad; })) << bad;
    }
    EXPECT_TRUE(with([](auto & h) { h.width = h.height = 16384; }));
}

TEST_F(StreamingTextureFormatTest, ChildrenLieBeforeTheirParents) {
    const auto withChild = [](const TileRef & child) {
        SoundTile tile;
        tile.header.children[2] = child;
        return tile.isSound();
    };
    EXPECT_TRUE(withChild({256, 600, 512}));
    EXPECT_TRUE(withChild({512, 512, 512})) << "up to the parent";
    EXPECT_FALSE(withChild({513, 512, 512}));
    EXPECT_FALSE(withChild({1024, 512, 512})) << "the tile itself";
    EXPECT_FALSE(withChild({2048, 512, 512})) << "behind its parent";
    EXPECT_FALSE(withChild({240, 512, 512}));
    EXPECT_FALSE(withChild({256, 600, 0}));
    EXPECT_FALSE(withChild({256, 256, 256})) << "no pixels";
    EXPECT_FALSE(withChild({256, 1, 0})) << "of terrains alone";
    EXPECT_FALSE(withChild({~std::uint64_t(0) - 10, 600, 512}));
    EXPECT_TRUE(withChild({77, 0, 0})) << "no tile";
}

TEST_F(StreamingTextureFormatTest, ThePixelSizeGoesFromCentreToCentre) {
    const SoundTile tile;
    EXPECT_EQ(tile.header.pixelSizeX(), 3.0);
    EXPECT_EQ(tile.header.pixelSizeY(), 4.0);
}

} // namespace
