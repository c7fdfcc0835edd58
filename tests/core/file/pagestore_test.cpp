#include <core/file/pagestore.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <set>

#include <gtest/gtest.h>

#include <support/scriptedfilecalls.h>

using ZMT::CORE::IMPL::PageStore;

namespace {

class PageStoreTest : public testing::Test {
protected:
    PageStoreTest() { PageStore::clear(); }
    ~PageStoreTest() override { PageStore::clear(); }
};

TEST_F(PageStoreTest, GivesWholePagesThatCanBeWritten) {
    for (const std::size_t bytes : {1UL, 4096UL, 4097UL, 65536UL, 1UL << 20, (1UL << 20) + 1, 3UL << 20}) {
        void * pages = PageStore::take(bytes);
        ASSERT_TRUE(pages);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(pages) % 4096, 0U);
        std::memset(pages, 1, bytes);
        EXPECT_TRUE(PageStore::give(pages, bytes));
    }
}

TEST_F(PageStoreTest, HandsOutAgainWhatWasGivenBack) {
    void * const pages = PageStore::take(40000);
    void * const other = PageStore::take(40000);
    EXPECT_NE(pages, other);
    EXPECT_TRUE(PageStore::give(pages, 40000));
    EXPECT_EQ(PageStore::take(65536), pages) << "it has room for that";
    EXPECT_TRUE(PageStore::give(pages, 65536));
    void * const smaller = PageStore::take(32768);
    EXPECT_NE(smaller, pages);
    EXPECT_EQ(PageStore::take(32769), pages);
    PageStore::give(pages, 32769);
    PageStore::give(smaller, 32768);
    PageStore::give(other, 40000);
}

TEST_F(PageStoreTest, LargeBlocksAreFresh) {
    ScriptedFileCalls calls;
    const std::size_t bytes = PageStore::s_largestKept + 1;
    void * const pages = PageStore::take(bytes);
    EXPECT_EQ(static_cast<char *>(pages)[bytes - 1], 0);
    EXPECT_TRUE(PageStore::give(pages, bytes));
    EXPECT_EQ(calls.releases, 1);
}

TEST_F(PageStoreTest, KeepsAFew) {
    ScriptedFileCalls calls;
    std::vector<void *> blocks;
    for (int i = 0; i < 100; ++i)
        blocks.push_back(PageStore::take(65536));
    EXPECT_EQ(std::set<void *>(blocks.begin(), blocks.end()).size(), 100U);
    for (void * pages : blocks)
        EXPECT_TRUE(PageStore::give(pages, 65536));
    EXPECT_EQ(calls.releases, 100 - 64);
    PageStore::clear();
    EXPECT_EQ(calls.releases, 100);
    EXPECT_EQ(calls.allocated, 0) << "all was given back with the size that it was taken with";
}

TEST_F(PageStoreTest, NeverTiresOfHandingOutTheSame) {
    ScriptedFileCalls calls;
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(PageStore::give(PageStore::take(PageStore::s_largestKept), PageStore::s_largestKept));
    EXPECT_EQ(calls.releases, 0);
}

TEST_F(PageStoreTest, TellsWhatTheSystemRefuses) {
    ScriptedFileCalls calls;
    calls.allocateError = ENOMEM;
    EXPECT_EQ(PageStore::take(5000), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    calls.allocateError = 0;
    void * const pages = PageStore::take(2 << 20);
    calls.releaseError = EINVAL;
    EXPECT_FALSE(PageStore::give(pages, 2 << 20));
    EXPECT_EQ(errno, EINVAL);
}

} // namespace
