#include "util/compressedtexture/tileencoder.h"

#include <new>

#include <gtest/gtest.h>

#include <nbx/image/memoryimage.h>

namespace {

using NBX::SO;
using ZMT::UTIL::CompressedTexture;
using ZMT::UTIL::EncodedTile;
using ZMT::UTIL::TileEncoder;

constexpr int s_side = 128;

/// As if memory ran out while the pixels are read.
class ImageWithoutMemory : public NBX::Image {
    NBX_TEMPLATE_CLASS(ImageWithoutMemory, NBX::Image)
public:
    ImageWithoutMemory() : Image(NBX::LS_RGB, UInt8) {}
    int width() const override { return s_side; }
    int height() const override { return s_side; }
    const void * lineComponents(int) const override { throw std::bad_alloc(); }
};

SO<NBX::Image> tile() {
    return new NBX::MemoryImage(s_side, s_side, NBX::LS_RGB);
}

TEST(TileEncoder, TilesComeOutInTheirOrder) {
    std::vector<std::uint64_t> written;
    TileEncoder encoder(CompressedTexture::PF_RGB8, true,
                        [&](const EncodedTile & t) { written.push_back(t.index); });
    std::vector<std::uint64_t> expected;
    for (std::uint64_t i = 0; i < 100; ++i) {
        encoder.add(7 * i % 100, tile());
        expected.push_back(7 * i % 100);
    }
    encoder.finish();
    EXPECT_EQ(written, expected);
}

TEST(TileEncoder, WhatEncodingThrowsIsThrownInTheOrderOfTheTiles) {
    std::vector<std::uint64_t> written;
    TileEncoder encoder(CompressedTexture::PF_RGB8, true,
                        [&](const EncodedTile & t) { written.push_back(t.index); });
    EXPECT_THROW(
        {
            encoder.add(0, tile());
            encoder.add(1, new ImageWithoutMemory);
            encoder.add(2, tile());
            encoder.finish();
        },
        std::bad_alloc);
    EXPECT_EQ(written, std::vector<std::uint64_t>{0});
    encoder.finish();
    EXPECT_EQ(written.back(), 2U) << "what was under way comes on request";
}

TEST(TileEncoder, AFailureThatNobodyWaitsForIsDropped) {
    unsigned written = 0;
    {
        TileEncoder encoder(CompressedTexture::PF_RGB8, false, [&](const EncodedTile &) { ++written; });
        encoder.add(0, new ImageWithoutMemory);
    }
    EXPECT_EQ(written, 0U);
}

} // namespace
