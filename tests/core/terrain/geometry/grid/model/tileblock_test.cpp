#include "core/terrain/geometry/grid/model/tileblock.h"

#include <cstring>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/data/zlibfilter.h>

#include <support/temporaryfolder.h>

namespace {

using namespace ZMT::CORE::GRID;
using NBX::SO;

using BlockBytes = std::vector<std::uint8_t>;

SO<NBX::DataResource> resource(const BlockBytes & bytes) {
    return new NBX::MemoryDataResource(bytes.data(), static_cast<unsigned>(bytes.size()));
}

BlockBytes bytesOf(const SO<NBX::DataResource> & data) {
    BlockBytes bytes(data->size());
    std::memcpy(bytes.data(), data->pointer(), bytes.size());
    return bytes;
}

/// `noise` bytes that do not deflate, then equal ones.
BlockBytes block(unsigned size, unsigned noise) {
    BlockBytes bytes(size);
    std::uint32_t state = 1;
    for (unsigned i = 0; i < noise; ++i)
        bytes[i] = static_cast<std::uint8_t>((state = state * 1664525U + 1013904223U) >> 24U);
    return bytes;
}

TEST(TileBlockTest, PaddingReachesTheNextMultipleOf16) {
    EXPECT_EQ(0U, TileBlock::padding(0));
    EXPECT_EQ(15U, TileBlock::padding(1));
    EXPECT_EQ(1U, TileBlock::padding(15));
    EXPECT_EQ(0U, TileBlock::padding(16));
    EXPECT_EQ(15U, TileBlock::padding((1ULL << 40) + 1));
}

TEST(TileBlockTest, DeflatingHasToSaveMoreThanAFifth) {
    EXPECT_TRUE(TileBlock::isWorthDeflating(1000, 799));
    EXPECT_FALSE(TileBlock::isWorthDeflating(1000, 800));
    EXPECT_FALSE(TileBlock::isWorthDeflating(1, 1));
    EXPECT_TRUE(TileBlock::isWorthDeflating(0xFFFFFFFF, 0xCCCCCCCB));
    EXPECT_FALSE(TileBlock::isWorthDeflating(0xFFFFFFFF, 0xCCCCCCCC));
}

TEST(TileBlockTest, WhatDeflatesToFourFifthsIsStoredPlain) {
    bool wasDeflated = false, wasPlain = false;
    for (unsigned noise = 700; noise < 860; ++noise) {
        const BlockBytes raw = block(1000, noise);
        const unsigned size = NBX::ZLibFilter::compress(raw.data(), 1000, 1)->size();
        const SO<NBX::DataResource> deflated = TileBlock::deflated(raw.data(), 1000, 1);
        EXPECT_EQ(size < 800, static_cast<bool>(deflated)) << size;
        if (deflated) {
            EXPECT_EQ(size, deflated->size());
        }
        wasDeflated |= size < 800;
        wasPlain |= size >= 800;
    }
    EXPECT_TRUE(wasDeflated && wasPlain);
}

TEST(TileBlockTest, BlocksLieBehindOneAnotherAtMultiplesOf16) {
    const TemporaryFolder folder;
    const std::string path = NBX::File::temporaryFileName("block-");
    {
        NBX::File file(path, NBX::WM_Create);
        file.write("0123456789abcdef", 16);
        EXPECT_EQ((TileRef{0, 70, 5}), TileBlock::append(file, 16, "first", 5, 70));
        EXPECT_EQ((TileRef{16, 6, 6}), TileBlock::append(file, 16, "second", 6, 6));
        EXPECT_EQ((TileRef{48, 9, 16}), TileBlock::append(file, 0, "exactly sixteen.", 16, 9));
    }
    const BlockBytes bytes = NBX::File::contents(path);
    const char expected[] = "0123456789abcdef"
                            "first\0\0\0\0\0\0\0\0\0\0\0"
                            "second\0\0\0\0\0\0\0\0\0\0"
                            "exactly sixteen.";
    EXPECT_EQ(BlockBytes(expected, expected + sizeof expected - 1), bytes);
}

TEST(TileBlockTest, ReferencesOutsideOfTheStreamAreImpossible) {
    const struct {
        const char * name;
        TileRef ref;
        bool isPossible;
    } cases[] = {
        {"plain", {256, 100, 100}, true},
        {"at the end", {900, 100, 100}, true},
        {"one byte beyond the end", {901, 100, 100}, false},
        {"begins behind the end", {1001, 100, 100}, false},
        {"the end overflows", {UINT64_MAX - 50, 100, 100}, false},
        {"in the header", {255, 100, 100}, false},
        {"nothing", {0, 0, 0}, false},
        {"nothing, with a place", {256, 0, 100}, false},
        {"a part of the parent", {0, 1, 0}, false},
        {"nothing is stored", {256, 100, 0}, false},
        {"deflated", {256, 1032 * 10, 10}, true},
        {"more than ten bytes can hold", {256, 1032 * 11, 10}, false},
        {"four gigabytes of nothing", {256, UINT32_MAX, 100}, false},
        {"deflating made it longer", {256, 100, 164}, true},
        {"longer than deflating makes it", {256, 100, 165}, false},
    };
    for (const auto & c : cases)
        EXPECT_EQ(c.isPossible, TileBlock::isPossible(c.ref, 1000, 256)) << c.name;
}

TEST(TileBlockTest, FaultsOfReferencesAreNamed) {
    const struct {
        const char * fault;
        TileRef ref;
    } cases[] = {
        {"takes no bytes", {256, 100, 0}},
        {"begins inside of the header", {255, 100, 100}},
        {"reaches beyond the end", {901, 100, 100}},
        {"is longer than its contents make it", {256, 100, 165}},
        {"is too short for its contents", {256, 1032 * 11, 10}},
    };
    for (const auto & c : cases)
        EXPECT_STREQ(c.fault, TileBlock::fault(c.ref, 1000, 256));
    EXPECT_EQ(nullptr, TileBlock::fault({256, 100, 100}, 1000, 256));
}

TEST(TileBlockTest, TheEndOfAStreamIsTold) {
    const BlockBytes raw = block(5000, 1000);
    BlockBytes stored = bytesOf(TileBlock::deflated(raw.data(), 5000, 1));
    const auto size = static_cast<unsigned>(stored.size());
    stored.push_back(0);
    unsigned used = 0;
    EXPECT_TRUE(TileBlock::inflated({0, 5000, size + 1}, resource(stored), &used));
    EXPECT_EQ(size, used);
    EXPECT_TRUE(TileBlock::inflated({0, 5000, 5000}, resource(raw), &used));
    EXPECT_EQ(5000U, used);
}

TEST(TileBlockTest, ABlockComesBackAsItWas) {
    const BlockBytes raw = block(5000, 1000);
    const SO<NBX::DataResource> stored = TileBlock::deflated(raw.data(), 5000, 1);
    ASSERT_TRUE(stored);
    const SO<NBX::DataResource> back = TileBlock::inflated({0, 5000, stored->size()}, stored);
    ASSERT_TRUE(back);
    EXPECT_EQ(raw, bytesOf(back));
    const SO<NBX::DataResource> plain = resource(raw);
    EXPECT_EQ(plain, TileBlock::inflated({0, 5000, 5000}, plain));
    // Also where deflating made it longer.
    const BlockBytes noise = block(300, 300);
    const SO<NBX::DataResource> longer = NBX::ZLibFilter::compress(noise.data(), 300, 0);
    ASSERT_LT(300U, longer->size());
    EXPECT_EQ(noise, bytesOf(TileBlock::inflated({0, 300, longer->size()}, longer)));
}

TEST(TileBlockTest, AnyOtherLengthFails) {
    const BlockBytes raw = block(5000, 100);
    const SO<NBX::DataResource> stored = TileBlock::deflated(raw.data(), 5000, 1);
    ASSERT_TRUE(stored);
    const unsigned size = stored->size();
    EXPECT_FALSE(TileBlock::inflated({0, 5001, size}, stored));
    EXPECT_FALSE(TileBlock::inflated({0, 4999, size}, stored));
    EXPECT_FALSE(TileBlock::inflated({0, 5000, size + 1}, stored));
    EXPECT_FALSE(TileBlock::inflated({0, 5000, size - 1}, stored));
    EXPECT_FALSE(TileBlock::inflated({0, UINT32_MAX, size}, stored));
    EXPECT_FALSE(TileBlock::inflated({0, 5000, size}, nullptr));
    const BlockBytes whole = bytesOf(stored);
    for (unsigned length = 0; length < size; ++length) {
        const BlockBytes part(whole.begin(), whole.begin() + length);
        EXPECT_FALSE(TileBlock::inflated({0, 5000, length}, resource(part))) << length;
    }
}

TEST(TileBlockTest, NoChangeOfADeflatedBlockPasses) {
    const BlockBytes raw = block(400, 50);
    const BlockBytes good = bytesOf(TileBlock::deflated(raw.data(), 400, 1));
    for (std::size_t i = 0; i < good.size(); ++i)
        for (const unsigned bit : {1U, 16U, 128U}) {
            BlockBytes bad = good;
            bad[i] ^= bit;
            const SO<NBX::DataResource> back =
                TileBlock::inflated({0, 400, static_cast<std::uint32_t>(bad.size())}, resource(bad));
            // The last bits in front of the checksum may be filling.
            if (back) {
                EXPECT_EQ(raw, bytesOf(back)) << i << " " << bit;
            }
        }
}

} // namespace
