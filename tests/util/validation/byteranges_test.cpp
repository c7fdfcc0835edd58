#include "util/validation/byteranges.h"

#include <random>
#include <vector>

#include <gtest/gtest.h>

using ZMT::UTIL::ByteRanges;

namespace {

std::string gaps(const ByteRanges & ranges, std::uint64_t begin, std::uint64_t end) {
    std::string text;
    ranges.forEachGap(begin, end, [&](std::uint64_t first, std::uint64_t last) {
        text += std::to_string(first) + "-" + std::to_string(last) + " ";
    });
    return text;
}

} // namespace

TEST(ByteRanges, NothingIsTakenAtFirst) {
    const ByteRanges ranges;
    EXPECT_TRUE(ranges.isFree(0, UINT64_MAX));
    EXPECT_EQ(gaps(ranges, 10, 20), "10-20 ");
    EXPECT_EQ(gaps(ranges, 10, 10), "");
}

TEST(ByteRanges, RangesThatTouchBecomeOne) {
    ByteRanges ranges;
    ranges.take(10, 20);
    ranges.take(30, 40);
    ranges.take(5, 5);
    EXPECT_EQ(ranges.count(), 2U);
    EXPECT_EQ(gaps(ranges, 0, 50), "0-10 20-30 40-50 ");
    EXPECT_EQ(gaps(ranges, 15, 35), "20-30 ");
    EXPECT_EQ(gaps(ranges, 22, 25), "22-25 ");
    ranges.take(20, 30);
    EXPECT_EQ(ranges.count(), 1U);
    ranges.take(40, 41);
    ranges.take(9, 10);
    EXPECT_EQ(ranges.count(), 1U);
    EXPECT_EQ(gaps(ranges, 0, 50), "0-9 41-50 ");
}

TEST(ByteRanges, AgreeWithAListOfBytes) {
    std::mt19937 random(7);
    for (int run = 0; run < 300; ++run) {
        ByteRanges ranges;
        std::vector<bool> taken(60);
        for (int i = 0; i < 25; ++i) {
            const unsigned begin = random() % 55, end = begin + 1 + random() % 5;
            bool isFree = true;
            for (unsigned b = begin; b < end; ++b)
                isFree = isFree && !taken[b];
            ASSERT_EQ(ranges.isFree(begin, end), isFree) << run;
            if (!isFree) continue;
            ranges.take(begin, end);
            for (unsigned b = begin; b < end; ++b)
                taken[b] = true;
        }
        std::vector<bool> filled = taken;
        ranges.forEachGap(0, 60, [&](std::uint64_t begin, std::uint64_t end) {
            for (std::uint64_t b = begin; b < end; ++b) {
                ASSERT_FALSE(filled[b]);
                filled[b] = true;
            }
        });
        ASSERT_EQ(filled, std::vector<bool>(60, true));
    }
}
