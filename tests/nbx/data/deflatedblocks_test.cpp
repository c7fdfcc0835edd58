#include "nbx/data/deflatedblocks.h"

#include <cstring>
#include <random>

#include <gtest/gtest.h>

#include <zlib.h>

namespace NBX {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::size_t s_block = DeflatedBlocks::s_blockBytes;

Bytes blocksOf(const Bytes & bytes) {
    Bytes blocks;
    for (std::size_t at = 0; at < bytes.size(); at += s_block)
        DeflatedBlocks::append(blocks, bytes.data() + at, std::min(s_block, bytes.size() - at));
    return blocks;
}

/// From a buffer of exactly that size.
std::unique_ptr<std::uint8_t[]> inflated(const Bytes & blocks, std::uint64_t size) {
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[blocks.size()]);
    std::copy(blocks.begin(), blocks.end(), exact.get());
    return DeflatedBlocks::inflate(exact.get(), blocks.size(), size);
}

Bytes numbers(std::size_t size, unsigned values) {
    std::mt19937 random(7);
    Bytes bytes(size);
    for (std::uint8_t & byte : bytes)
        byte = std::uint8_t(random() % values);
    return bytes;
}

std::uint32_t storedSize(const Bytes & blocks) {
    std::uint32_t size = 0;
    std::memcpy(&size, blocks.data(), sizeof size);
    return size;
}

TEST(DeflatedBlocks, GiveBackWhatWentIn) {
    for (const std::size_t size :
         {std::size_t(0), std::size_t(1), std::size_t(63), std::size_t(64), std::size_t(65),
          std::size_t(5000), s_block - 1, s_block, s_block + 1, 2 * s_block + 77}) {
        for (const unsigned values : {1U, 4U, 256U}) {
            const Bytes bytes = numbers(size, values);
            const Bytes blocks = blocksOf(bytes);
            const auto back = inflated(blocks, size);
            ASSERT_TRUE(back) << size;
            EXPECT_EQ(0, size > 0 ? std::memcmp(back.get(), bytes.data(), size) : 0) << size;
            EXPECT_LE(size, DeflatedBlocks::s_mostRatio * blocks.size());
        }
    }
}

/// Among them some that become shorter by a byte or two.
TEST(DeflatedBlocks, ShortOnesOfAllKindsComeBack) {
    unsigned barelyShorter = 0;
    for (std::size_t size = 1; size < 200; ++size)
        for (unsigned values = 1; values <= 256; values *= 2) {
            const Bytes bytes = numbers(size, values);
            const Bytes blocks = blocksOf(bytes);
            const auto back = inflated(blocks, size);
            ASSERT_TRUE(back) << size << " " << values;
            EXPECT_EQ(0, std::memcmp(back.get(), bytes.data(), size)) << size << " " << values;
            barelyShorter += storedSize(blocks) == size - 1;
        }
    EXPECT_GT(barelyShorter, 0U);
}

TEST(DeflatedBlocks, WhatDoesNotBecomeSmallerIsStoredAsItIs) {
    const Bytes blocks = blocksOf(numbers(1000, 256));
    EXPECT_EQ(storedSize(blocks), 1000U);
    EXPECT_EQ(blocks.size(), 1004U);
    EXPECT_LT(storedSize(blocksOf(numbers(1000, 4))), 500U);
}

/// zlib itself makes a thousandth of zeros.
TEST(DeflatedBlocks, BlocksThatInflateToMoreThanTheyMayAreRefused) {
    const Bytes zeros(s_block, 0);
    const Bytes own = blocksOf(zeros);
    EXPECT_EQ(storedSize(own), s_block / DeflatedBlocks::s_mostRatio);
    uLongf size = compressBound(s_block);
    Bytes bomb(4 + size);
    ASSERT_EQ(compress2(bomb.data() + 4, &size, zeros.data(), s_block, 9), Z_OK);
    const auto stored = std::uint32_t(size);
    std::memcpy(bomb.data(), &stored, sizeof stored);
    bomb.resize(4 + size);
    ASSERT_LT(size, s_block / DeflatedBlocks::s_mostRatio);
    EXPECT_FALSE(inflated(bomb, s_block));
}

TEST(DeflatedBlocks, CutsAndOtherSizesAreRefused) {
    const std::size_t size = s_block + 300;
    Bytes bytes = numbers(size, 4);
    std::fill(bytes.begin(), bytes.end() - 600, 0);
    const Bytes blocks = blocksOf(bytes);
    ASSERT_TRUE(inflated(blocks, size));
    for (const std::size_t cut : {std::size_t(0), std::size_t(3), std::size_t(4), std::size_t(5),
                                  s_block / 64, s_block / 64 + 5, s_block / 64 + 10, blocks.size() - 1})
        EXPECT_FALSE(inflated({blocks.begin(), blocks.begin() + std::ptrdiff_t(cut)}, size)) << cut;
    Bytes longer = blocks;
    longer.push_back(0);
    EXPECT_FALSE(inflated(longer, size));
    for (const std::uint64_t other : {std::uint64_t(0), std::uint64_t(1), std::uint64_t(size - 1),
                                      std::uint64_t(size + 1), std::uint64_t(2 * s_block), ~std::uint64_t(0)})
        EXPECT_FALSE(inflated(blocks, other)) << other;
    Bytes larger = blocks;
    larger[3] = 0x7F;
    EXPECT_FALSE(inflated(larger, size)) << "the size of a block";
}

TEST(DeflatedBlocks, ChangedBytesAreRefusedOrOthers) {
    const Bytes bytes = numbers(3000, 5);
    const Bytes blocks = blocksOf(bytes);
    std::mt19937 random(3);
    for (int i = 0; i < 2000; ++i) {
        Bytes changed = blocks;
        changed[random() % changed.size()] ^= std::uint8_t(1U << random() % 8);
        EXPECT_FALSE(inflated(changed, bytes.size())) << "zlib streams have a checksum";
    }
}

} // namespace
} // namespace NBX
