#include <nbx/data/zlibfilter.h>

#include <gtest/gtest.h>

#include <random>
#include <thread>

#include <zlib.h>

#include <nbx/data/memorydataresource.h>
#include <support/recordedreports.h>

using namespace NBX;
using Bytes = std::vector<unsigned char>;

namespace {

unsigned sizeOf(const Bytes & bytes) {
    return static_cast<unsigned>(bytes.size());
}

Bytes bytesOf(const DataResource & resource) {
    const auto * start = static_cast<const unsigned char *>(resource.pointer());
    return Bytes(start, start + resource.size());
}

/// Blocks of different nature: none, one byte, all equal, noise, and slowly changing heights.
std::vector<Bytes> samples() {
    std::mt19937 random(3);
    std::vector<Bytes> result{{}, {42}, Bytes(100000, 7)};
    Bytes noise(50000), heights(66049 * 2);
    for (unsigned char & b : noise)
        b = static_cast<unsigned char>(random());
    unsigned height = 1000;
    for (std::size_t i = 0; i + 1 < heights.size(); i += 2) {
        height += random() % 5 - 2;
        heights[i] = static_cast<unsigned char>(height);
        heights[i + 1] = static_cast<unsigned char>(height >> 8);
    }
    result.push_back(noise);
    result.push_back(heights);
    return result;
}

TEST(ZLibFilter, ZlibReadsWhatIsCompressed) {
    for (const Bytes & block : samples())
        for (const unsigned level : {0U, 1U, 6U, 9U, 12U, 99U}) {
            const SO<DataResource> packed = ZLibFilter::compress(block.data(), sizeOf(block), level);
            ASSERT_TRUE(packed);
            Bytes unpacked(block.size() + 1);
            uLongf size = unpacked.size();
            ASSERT_EQ(::uncompress(unpacked.data(), &size, bytesOf(*packed).data(), packed->size()), Z_OK);
            unpacked.resize(size);
            EXPECT_EQ(unpacked, block);
        }
}

TEST(ZLibFilter, ReadsWhatZlibCompressed) {
    for (const Bytes & block : samples())
        for (const int level : {0, 1, 6, 9}) {
            Bytes packed(::compressBound(block.size()));
            uLongf size = packed.size();
            ASSERT_EQ(::compress2(packed.data(), &size, block.data(), block.size(), level), Z_OK);
            Bytes unpacked(block.size());
            EXPECT_TRUE(ZLibFilter::uncompress(packed.data(), static_cast<unsigned>(size), unpacked.data(),
                                               sizeOf(unpacked)));
            EXPECT_EQ(unpacked, block);
        }
}

TEST(ZLibFilter, HigherLevelsGiveLess) {
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += "tile " + std::to_string(i * i % 977) + " of level " + std::to_string(i % 13) + "\n";
    const auto packed = [&](unsigned level) {
        return ZLibFilter::compress(text.data(), static_cast<unsigned>(text.size()), level)->size();
    };
    EXPECT_LT(packed(12), packed(6));
    EXPECT_LT(packed(6), packed(1));
    EXPECT_LT(packed(1), packed(0));
}

TEST(ZLibFilter, OnlyTheExactSizeIsSuccess) {
    const Bytes block = samples().back();
    const Bytes packed = bytesOf(*ZLibFilter::compress(block.data(), sizeOf(block), 6));
    Bytes out(block.size() + 1);
    EXPECT_TRUE(ZLibFilter::uncompress(packed.data(), sizeOf(packed), out.data(), sizeOf(block)));
    EXPECT_FALSE(ZLibFilter::uncompress(packed.data(), sizeOf(packed), out.data(), sizeOf(block) + 1));
    EXPECT_FALSE(ZLibFilter::uncompress(packed.data(), sizeOf(packed), out.data(), sizeOf(block) - 1));
    EXPECT_FALSE(ZLibFilter::uncompress(packed.data(), sizeOf(packed), out.data(), 0));
}

TEST(ZLibFilter, TellsWhereAStreamEnds) {
    const Bytes block = samples().back();
    Bytes packed = bytesOf(*ZLibFilter::compress(block.data(), sizeOf(block), 6));
    const unsigned size = sizeOf(packed);
    packed.resize(packed.size() + 5);
    Bytes out(block.size());
    unsigned used = 7;
    EXPECT_FALSE(ZLibFilter::uncompress(packed.data(), size - 1, out.data(), sizeOf(out), &used));
    EXPECT_EQ(used, 7U);
    EXPECT_TRUE(ZLibFilter::uncompress(packed.data(), sizeOf(packed), out.data(), sizeOf(out), &used));
    EXPECT_EQ(used, size);
}

TEST(ZLibFilter, DamagedStreamsFail) {
    const Bytes block = samples()[2];
    const Bytes packed = bytesOf(*ZLibFilter::compress(block.data(), sizeOf(block), 6));
    Bytes out(block.size());
    for (unsigned size = 0; size < packed.size(); ++size) {
        const Bytes cut(packed.begin(), packed.begin() + size);
        EXPECT_FALSE(ZLibFilter::uncompress(cut.data(), size, out.data(), sizeOf(out))) << size;
    }
    Bytes badSum = packed;
    badSum.back() ^= 1;
    EXPECT_FALSE(ZLibFilter::uncompress(badSum.data(), sizeOf(badSum), out.data(), sizeOf(out)));
    EXPECT_FALSE(ZLibFilter::uncompress(nullptr, 0, out.data(), sizeOf(out)));
    EXPECT_FALSE(ZLibFilter::uncompress(packed.data(), sizeOf(packed), nullptr, sizeOf(out)));
}

TEST(ZLibFilter, RandomBytesNeverCrash) {
    std::mt19937 random(5);
    Bytes out(1000);
    for (int i = 0; i < 5000; ++i) {
        Bytes noise{0x78, 0x9C};
        for (unsigned k = random() % 60; k > 0; --k)
            noise.push_back(static_cast<unsigned char>(random()));
        ZLibFilter::uncompress(noise.data(), sizeOf(noise), out.data(), sizeOf(out));
    }
}

TEST(ZLibFilter, ResourcesAndNothing) {
    const Bytes block(1000, 5);
    const SO<DataResource> packed =
        ZLibFilter::compress(SO<DataResource>(new MemoryDataResource(block.data(), sizeOf(block))), 1);
    ASSERT_TRUE(packed);
    Bytes out(1000);
    EXPECT_TRUE(ZLibFilter::uncompress(packed->pointer(), packed->size(), out.data(), 1000));
    EXPECT_EQ(out, block);
    const RecordedReports reports;
    EXPECT_FALSE(ZLibFilter::compress(nullptr, 1));
    EXPECT_EQ(reports.last().message, L"no resource");
    EXPECT_FALSE(ZLibFilter::compress(nullptr, 10, 1));
    EXPECT_EQ(reports.last().message, L"no data");
}

TEST(ZLibFilter, ThreadsDoNotDisturbEachOther) {
    const Bytes block = samples().back();
    std::vector<std::thread> threads;
    for (unsigned level = 1; level <= 4; ++level)
        threads.emplace_back([&block, level] {
            for (int i = 0; i < 5; ++i) {
                const SO<DataResource> packed = ZLibFilter::compress(block.data(), sizeOf(block), level);
                Bytes out(block.size());
                EXPECT_TRUE(
                    ZLibFilter::uncompress(packed->pointer(), packed->size(), out.data(), sizeOf(out)));
                EXPECT_EQ(out, block);
            }
        });
    for (std::thread & thread : threads)
        thread.join();
}

} // namespace
