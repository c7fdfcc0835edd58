#include "landscape/memorybudgets.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <memory>
#include <vector>

#include "landscape/errors.h"

namespace {

TEST(MemoryBudgets, AreFromOneToTheLargest) {
    checkMemoryBudgets({.main = 1, .graphics = MemoryBudgets::s_largest});
    EXPECT_THROW(checkMemoryBudgets({.main = 0, .graphics = 1}), UsageError);
    EXPECT_THROW(checkMemoryBudgets({.main = 1, .graphics = 0}), UsageError);
    EXPECT_THROW(checkMemoryBudgets({.main = MemoryBudgets::s_largest + 1, .graphics = 1}), UsageError);
    EXPECT_THROW(checkMemoryBudgets({.main = 1, .graphics = MemoryBudgets::s_largest + 1}), UsageError);
}

// Sanitizers have a heap of their own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

std::size_t bytesOutsideOfTheHeap() {
    return mallinfo2().hblkhd;
}

/// The heap learns from large blocks that it had to let go, and keeps smaller ones.
TEST(MemoryBudgets, LargeBlocksGoBackToTheSystemThoughLargerOnesWentBefore) {
    giveMemoryBack();
    constexpr std::size_t blockSize = 64 << 10, count = 4000;
    delete[] new char[4 << 20];
    const std::size_t before = bytesOutsideOfTheHeap();
    // What tests before have left free is used first.
    const std::size_t free = mallinfo2().fordblks;
    ASSERT_LT(free, blockSize * count / 2);
    std::vector<std::unique_ptr<char[]>> blocks;
    for (std::size_t i = 0; i < count; ++i)
        blocks.emplace_back(new char[blockSize]);
    EXPECT_GE(bytesOutsideOfTheHeap(), before + blockSize * count - free);
    blocks.clear();
    EXPECT_EQ(bytesOutsideOfTheHeap(), before);
}

#endif

} // namespace
