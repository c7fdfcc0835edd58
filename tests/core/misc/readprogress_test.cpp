#include <zmt/core/misc/readprogress.h>

#include <gtest/gtest.h>

using ZMT::CORE::ReadProgress;

namespace {

class ReadProgressTest : public testing::Test {
protected:
    /// By how much that was progress.
    std::uint64_t noted(std::uint64_t offset, std::uint64_t count) {
        const std::uint64_t before = ReadProgress::totalBytes();
        progress.note(offset, count);
        return ReadProgress::totalBytes() - before;
    }

    ReadProgress progress;
};

TEST_F(ReadProgressTest, WhatComesForTheFirstTimeCounts) {
    EXPECT_EQ(noted(100, 40), 40U);
    EXPECT_EQ(noted(100, 60), 20U);
    EXPECT_EQ(noted(200, 40), 40U) << "another range";
    EXPECT_EQ(noted(300, 0), 0U);
}

TEST_F(ReadProgressTest, WhatComesAgainDoesNot) {
    noted(100, 60);
    EXPECT_EQ(noted(100, 10), 0U);
    EXPECT_EQ(noted(100, 60), 0U);
    EXPECT_EQ(noted(100, 61), 1U) << "farther than ever";
}

TEST_F(ReadProgressTest, FilesCountForThemselves) {
    noted(100, 60);
    ReadProgress other;
    const std::uint64_t before = ReadProgress::totalBytes();
    other.note(100, 60);
    EXPECT_EQ(ReadProgress::totalBytes() - before, 60U);
}

TEST_F(ReadProgressTest, MemoryIsBounded) {
    for (std::uint64_t i = 0; i < ReadProgress::s_mostRanges; ++i)
        EXPECT_EQ(noted(i, 1), 1U);
    EXPECT_EQ(noted(0, 1), 0U) << "all are known";
    EXPECT_EQ(noted(ReadProgress::s_mostRanges, 1), 1U);
    EXPECT_EQ(noted(0, 1), 1U) << "forgotten";
}

} // namespace
