#include "core/terrain/texture/streaming/tileblockqueue.h"

#include <atomic>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>

#include <support/temporaryfolder.h>

#include <zmt/core/misc/thread.h>

#include "streamingtexturefile.h"

using namespace ZMT::CORE;
using NBX::SO;
using StreamingTextureFile::Bytes;
using StreamingTextureFile::refAt;

namespace {

/// A block of one value, or of noise.
TileBlockQueue::Block block(std::size_t size, int value) {
    TileBlockQueue::Block bytes(size, std::uint8_t(value));
    if (value < 0) {
        std::mt19937 random{static_cast<unsigned>(-value)};
        for (std::uint8_t & byte : bytes)
            byte = std::uint8_t(random());
    }
    for (std::size_t i = 96; i < 160; ++i)
        bytes[i] = 0;
    return bytes;
}

class TileBlockQueueTest : public testing::Test {
protected:
    SO<NBX::File> newFile() { return new NBX::File(NBX::File::temporaryFileName("queue-"), NBX::WM_Create); }
    static Bytes contents(NBX::File & file) {
        Bytes bytes(file.size());
        file.seek(0);
        file.read(bytes.data(), bytes.size());
        return bytes;
    }

    const TemporaryFolder folder;
};

TEST_F(TileBlockQueueTest, DeflatesWhatSavesAFifth) {
    const SO<NBX::File> file = newFile();
    TileBlockQueue queue(file, 0, 0, 1);
    const auto flat = queue.add([] { return block(1000, 7); }, {});
    const auto noise = queue.add([] { return block(1000, -1); }, {});
    queue.finish();
    EXPECT_LT(TileBlockQueue::refOf(flat).storedSize, 100U);
    EXPECT_EQ(TileBlockQueue::refOf(flat).rawSize, 1000U);
    EXPECT_EQ(TileBlockQueue::refOf(noise).storedSize, 1000U);
    EXPECT_EQ(TileBlockQueue::refOf(noise).rawSize, 1000U);
}

TEST_F(TileBlockQueueTest, AtFourFifthsAndMoreABlockIsStoredAsItIs) {
    // Noise in front, zeros behind: the more noise, the larger the deflated block.
    bool wasPlain = false, wasDeflated = false;
    for (unsigned noise = 700; noise < 900; ++noise) {
        auto raw = block(1000, -3);
        std::fill(raw.begin() + noise, raw.end(), std::uint8_t(0));
        const auto packed = NBX::ZLibFilter::compress(raw.data(), 1000, 9);
        const SO<NBX::File> file = newFile();
        TileBlockQueue queue(file, 0, 0, 1);
        const auto tile = queue.add([&] { return raw; }, {});
        queue.finish();
        const bool pays = packed->size() < 800;
        EXPECT_EQ(TileBlockQueue::refOf(tile).storedSize, pays ? packed->size() : 1000U) << noise;
        wasPlain = wasPlain || packed->size() == 800;
        wasDeflated = wasDeflated || packed->size() == 799;
    }
    EXPECT_TRUE(wasPlain && wasDeflated) << "both sides of the limit";
}

TEST_F(TileBlockQueueTest, BlocksLieAtMultiplesOfSixteenOfTheFile) {
    const SO<NBX::File> file = newFile();
    const char front[100] = {};
    file->write(front, sizeof front);
    // The stream begins at 5, and the position is 100.
    TileBlockQueue queue(file, 5, 0, 2);
    const auto a = queue.add([] { return block(301, -1); }, {});
    const auto b = queue.add([] { return block(320, -2); }, {});
    queue.finish();
    EXPECT_EQ(TileBlockQueue::refOf(a).offset, 95U) << "the first one stands where the file stood";
    EXPECT_EQ((TileBlockQueue::refOf(b).offset + 5) % 16, 0U);
    EXPECT_EQ(TileBlockQueue::refOf(b).offset, 416U - 5U);
    EXPECT_EQ(file->size(), 736U);
    const Bytes bytes = contents(*file);
    for (std::size_t i = 401; i < 416; ++i)
        EXPECT_EQ(bytes[i], 0) << i;
}

TEST_F(TileBlockQueueTest, ParentsKnowTheirChildren) {
    const SO<NBX::File> file = newFile();
    TileBlockQueue queue(file, 0, 0, 3);
    const auto a = queue.add([] { return block(300, -1); }, {});
    const auto b = queue.add([] { return block(300, 9); }, {});
    const auto parent = queue.add([] { return block(400, -3); }, {nullptr, a, nullptr, b});
    queue.finish();
    const auto ref = TileBlockQueue::refOf(parent);
    ASSERT_EQ(ref.rawSize, ref.storedSize);
    const Bytes bytes = contents(*file);
    const auto child = [&](unsigned i) { return refAt(bytes, ref.offset + 96 + 16 * i); };
    EXPECT_EQ(child(0).rawSize, 0U);
    EXPECT_EQ(child(1).offset, TileBlockQueue::refOf(a).offset);
    EXPECT_EQ(child(1).rawSize, 300U);
    EXPECT_EQ(child(2).rawSize, 0U);
    EXPECT_EQ(child(3).offset, TileBlockQueue::refOf(b).offset);
    EXPECT_EQ(child(3).storedSize, TileBlockQueue::refOf(b).storedSize);
    EXPECT_GT(ref.offset, child(3).offset);
}

TEST_F(TileBlockQueueTest, AnyNumberOfThreadsGivesTheSameBytes) {
    const auto write = [this](unsigned threads) {
        const SO<NBX::File> file = newFile();
        TileBlockQueue queue(file, 0, 0x1122334455667788ULL, threads);
        std::mt19937 random{5};
        std::vector<TileBlockQueue::Handle> open;
        for (int i = 0; i < 300; ++i) {
            TileBlockQueue::Children children;
            for (unsigned c = 0; c < 4 && open.size() > 3 && i % 3 == 0; ++c) {
                children[c] = open.back();
                open.pop_back();
            }
            const std::size_t size = 260 + random() % 700;
            const int value = i % 2 == 0 ? i : -i;
            const bool isSlow = random() % 8 == 0;
            open.push_back(queue.add(
                [=] {
                    if (isSlow) Thread::sleep(0.001);
                    return block(size, value);
                },
                children));
        }
        queue.finish();
        return contents(*file);
    };
    const Bytes one = write(1);
    EXPECT_GT(one.size(), 10000U);
    for (const unsigned threads : {2U, 3U, 8U, 0U})
        EXPECT_TRUE(write(threads) == one) << threads;
}

TEST_F(TileBlockQueueTest, ScramblesWhatItStores) {
    constexpr std::uint64_t key = 0x1122334455667788ULL;
    const SO<NBX::File> file = newFile(), plainFile = newFile();
    for (const auto & [target, k] : {std::pair(file, key), std::pair(plainFile, std::uint64_t(0))}) {
        TileBlockQueue queue(target, 0, k, 2);
        // 301 bytes: five more than whole words.
        queue.add([] { return block(301, -1); }, {});
        queue.finish();
    }
    const Bytes scrambled = contents(*file), plain = contents(*plainFile);
    EXPECT_EQ(Bytes(scrambled.begin(), scrambled.begin() + 301),
              StreamingTextureFile::scrambled(Bytes(plain.begin(), plain.begin() + 301), key));
    EXPECT_TRUE(std::equal(scrambled.begin() + 296, scrambled.end(), plain.begin() + 296))
        << "tail and zeros";
}

TEST_F(TileBlockQueueTest, FewTilesAreInMemoryAtOnce) {
    const SO<NBX::File> file = newFile();
    std::atomic<int> made = 0;
    TileBlockQueue queue(file, 0, 0, 2);
    for (int i = 0; i < 100; ++i) {
        queue.add(
            [&] {
                ++made;
                return block(300, -1);
            },
            {});
        EXPECT_LE(i + 1 - int(file->position() / 304), 9) << "four for each thread, and this one";
    }
    queue.finish();
    EXPECT_EQ(made, 100);
}

TEST_F(TileBlockQueueTest, WhatFailsInAThreadIsThrownToTheCaller) {
    const auto fail = [this] {
        TileBlockQueue queue(newFile(), 0, 0, 2);
        const auto child = queue.add([] { return block(300, 1); }, {});
        queue.add([]() -> TileBlockQueue::Block { throw std::runtime_error("no memory"); }, {child});
        queue.finish();
    };
    EXPECT_THROW(fail(), std::runtime_error);
}

TEST_F(TileBlockQueueTest, DeflatesAtTheNinthLevel) {
    // Few values, so that there are more repetitions to choose from than lower levels look at.
    auto raw = block(60000, -7);
    for (std::size_t i = 160; i < raw.size(); ++i)
        raw[i] %= 3;
    const SO<NBX::File> file = newFile();
    TileBlockQueue queue(file, 0, 0, 1);
    const auto tile = queue.add([&] { return raw; }, {});
    queue.finish();
    const auto size = [&](unsigned level) {
        return NBX::ZLibFilter::compress(raw.data(), static_cast<unsigned>(raw.size()), level)->size();
    };
    ASSERT_NE(size(9), size(8)) << "levels are told apart";
    EXPECT_EQ(TileBlockQueue::refOf(tile).storedSize, size(9));
}

TEST_F(TileBlockQueueTest, MayEndAtAnyTime) {
    for (int i = 0; i < 20; ++i) {
        const SO<NBX::File> file = newFile();
        TileBlockQueue queue(file, 0, 0, 4);
        for (int k = 0; k < i; ++k)
            queue.add([] { return block(2000, -1); }, {});
    }
}

} // namespace
