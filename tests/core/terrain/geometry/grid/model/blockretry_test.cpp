#include "core/terrain/geometry/grid/model/blockretry.h"

#include <gtest/gtest.h>

using ZMT::CORE::GRID::BlockRetry;

TEST(BlockRetry, PausesDoubleUpToALongestOne) {
    BlockRetry reads, blocks;
    EXPECT_FALSE(reads.hasFailed());
    for (const double pause : {1.0, 2.0, 4.0, 4.0, 4.0})
        EXPECT_EQ(pause, reads.readFailed());
    for (const double pause : {1.0, 2.0, 4.0, 8.0, 16.0, 32.0, 60.0, 60.0})
        EXPECT_EQ(pause, blocks.blockFailed());
    EXPECT_TRUE(reads.hasFailed());
    EXPECT_TRUE(blocks.hasFailed());
}

TEST(BlockRetry, NoNumberOfFailuresIsTooLarge) {
    BlockRetry retry;
    for (unsigned i = 0; i < 100000; ++i)
        retry.blockFailed();
    EXPECT_EQ(60.0, retry.blockFailed());
}

TEST(BlockRetry, ReadsAndBlocksAreCountedApart) {
    BlockRetry retry;
    for (unsigned i = 0; i < 9; ++i)
        retry.readFailed();
    EXPECT_EQ(1.0, retry.blockFailed()) << "the outage says nothing about the block";
    EXPECT_EQ(1.0, retry.readFailed()) << "the server had answered well";
    EXPECT_EQ(2.0, retry.blockFailed()) << "the block was damaged before";
    EXPECT_EQ(4.0, retry.blockFailed());
}

TEST(BlockRetry, ASoundBlockEndsTheRows) {
    BlockRetry retry;
    retry.readFailed();
    retry.blockFailed();
    retry.succeeded();
    EXPECT_FALSE(retry.hasFailed());
    EXPECT_EQ(1.0, retry.readFailed());
    EXPECT_EQ(1.0, retry.blockFailed());
}
