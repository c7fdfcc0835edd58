#include <zmt/core/terrain/geometry/tree/patchblock.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace {

using ZMT::CORE::PatchBlock;

unsigned & first(const PatchBlock & block) {
    return *static_cast<unsigned *>(block.data());
}

TEST(PatchBlock, IsAsLargeAsAPointer) {
    EXPECT_EQ(sizeof(PatchBlock), sizeof(void *));
}

TEST(PatchBlock, WithoutMemoryHasNoData) {
    const PatchBlock none;
    EXPECT_EQ(none.data(), nullptr);
    const PatchBlock copy(none);
    EXPECT_EQ(copy.data(), nullptr);
    EXPECT_NE(PatchBlock(0).data(), nullptr);
}

TEST(PatchBlock, CopiesShareTheMemory) {
    PatchBlock block(16);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block.data()) % 4, 0U);
    first(block) = 7;
    const PatchBlock copy(block);
    EXPECT_EQ(copy.data(), block.data());
    block = PatchBlock(16);
    first(block) = 8;
    EXPECT_EQ(first(copy), 7U) << "the last holder keeps it";
    const PatchBlock moved(std::move(block));
    EXPECT_EQ(first(moved), 8U);
    EXPECT_EQ(block.data(), nullptr);
}

TEST(PatchBlock, MayBeAssignedToItself) {
    PatchBlock block(4);
    first(block) = 9;
    const PatchBlock & same = block;
    block = same;
    EXPECT_EQ(first(block), 9U);
}

/// The sanitizers tell what goes wrong here.
TEST(PatchBlock, CopiesMayLiveOnAnyThread) {
    const PatchBlock block(4);
    first(block) = 3;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([copy = block] {
            for (int k = 0; k < 1000; ++k) {
                const PatchBlock another(copy);
                EXPECT_EQ(first(another), 3U);
            }
        });
    for (std::thread & thread : threads)
        thread.join();
    EXPECT_EQ(first(block), 3U);
}

} // namespace
