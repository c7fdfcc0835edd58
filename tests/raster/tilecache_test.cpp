#include <zmt/raster/tilecache.h>

#include <thread>

#include <gtest/gtest.h>

#include <nbx/engine/mainmemorymanager.h>
#include <nbx/image/memoryimage.h>

namespace {

using NBX::SO;
using ZMT::RASTER::TileCache;

/// 1000 bytes.
SO<NBX::Image> tile() {
    return new NBX::MemoryImage(10, 100, NBX::LS_Luminance);
}

/// The numbers below 10 that are kept; asking is a use.
std::string kept(TileCache & cache) {
    std::string result;
    for (unsigned i = 0; i < 10; ++i)
        if (cache.find(i)) result += std::to_string(i);
    return result;
}

TEST(TileCache, GivesWhatItKeeps) {
    const SO<TileCache> cache(new TileCache(10000));
    const SO<NBX::Image> image = tile();
    EXPECT_FALSE(cache->find(7));
    cache->keep(7, image);
    ASSERT_TRUE(cache->find(7));
    EXPECT_EQ(image.get(), cache->find(7)->get());
    EXPECT_EQ(1000U, cache->usedBytes());
    EXPECT_EQ(10000U, cache->maxBytes());
    cache->clear();
    EXPECT_FALSE(cache->find(7));
    EXPECT_EQ(0U, cache->usedBytes());
}

TEST(TileCache, GivesWayWhereMainMemoryIsShort) {
    auto * manager = NBX::MainMemoryManager::instance();
    manager->setBudget(6000);
    const SO<TileCache> cache(new TileCache(10000)), other(new TileCache(10000));
    for (unsigned i = 0; i < 5; ++i)
        cache->keep(i, tile());
    EXPECT_EQ(5000U, cache->usedBytes());
    for (unsigned i = 0; i < 5; ++i)
        other->keep(i, tile());
    EXPECT_EQ(3000U, other->usedBytes()) << "its half";
    EXPECT_EQ(5000U, cache->usedBytes()) << "not before its own thread uses it";
    EXPECT_TRUE(cache->find(4));
    EXPECT_EQ("234", kept(*cache));
    EXPECT_EQ(0U, manager->excess());
    manager->setBudget(1000);
    EXPECT_TRUE(cache->find(4));
    EXPECT_EQ("4", kept(*cache)) << "the newest stays";
    manager->setBudget(NBX::MainMemoryManager::defaultBudget);
}

TEST(TileCache, SmallTilesCountMoreThanTheirPixels) {
    const SO<TileCache> cache(new TileCache(5 * TileCache::leastTileBytes));
    for (unsigned i = 0; i < 6; ++i)
        cache->keep(i, new NBX::MemoryImage(1, 1, NBX::LS_Luminance));
    EXPECT_EQ("12345", kept(*cache));
    EXPECT_EQ(cache->maxBytes(), cache->usedBytes());
}

TEST(TileCache, ATileWithoutPixelsIsKnownAsSuch) {
    const SO<TileCache> cache(new TileCache(10000));
    cache->keep(1, nullptr);
    ASSERT_TRUE(cache->find(1));
    EXPECT_FALSE(*cache->find(1));
    EXPECT_EQ(TileCache::leastTileBytes, cache->usedBytes());
}

TEST(TileCache, TheTileThatWasNotUsedForLongestGoesFirst) {
    const SO<TileCache> cache(new TileCache(3999));
    for (unsigned i = 0; i < 3; ++i)
        cache->keep(i, tile());
    EXPECT_TRUE(cache->find(0));
    cache->keep(3, tile());
    EXPECT_EQ("023", kept(*cache));
    cache->keep(4, tile());
    EXPECT_EQ("234", kept(*cache));
    EXPECT_EQ(3000U, cache->usedBytes());
}

TEST(TileCache, ALargeTileTakesThePlaceOfSeveral) {
    const SO<TileCache> cache(new TileCache(4000));
    for (unsigned i = 0; i < 4; ++i)
        cache->keep(i, tile());
    cache->keep(4, new NBX::MemoryImage(10, 100, NBX::LS_RGB));
    EXPECT_EQ("34", kept(*cache));
    EXPECT_EQ(4000U, cache->usedBytes());
    cache->keep(5, new NBX::MemoryImage(10, 401, NBX::LS_Luminance));
    EXPECT_EQ("34", kept(*cache)) << "larger than the budget";
}

TEST(TileCache, WhatIsKeptTwiceCountsOnce) {
    const SO<TileCache> cache(new TileCache(1500));
    const SO<NBX::Image> first = tile();
    cache->keep(1, first);
    cache->keep(1, tile());
    EXPECT_EQ(1000U, cache->usedBytes());
    EXPECT_EQ(first.get(), cache->find(1)->get());
}

TEST(TileCache, NoBudgetKeepsNothing) {
    const SO<TileCache> cache(new TileCache(0));
    cache->keep(1, tile());
    cache->keep(2, nullptr);
    EXPECT_EQ("", kept(*cache));
}

TEST(TileCache, ThreadsShareIt) {
    const SO<TileCache> cache(new TileCache(10000));
    const auto use = [&cache](unsigned start) {
        for (unsigned i = 0; i < 2000; ++i) {
            const unsigned number = (start + i * 7) % 25;
            const auto known = cache->find(number);
            const auto height = static_cast<int>(100 + number);
            if (!known) cache->keep(number, new NBX::MemoryImage(10, height, NBX::LS_Luminance));
            if (known) {
                ASSERT_EQ(height, (*known)->height());
            }
            ASSERT_LE(cache->usedBytes(), cache->maxBytes());
        }
    };
    std::thread other(use, 3);
    use(0);
    other.join();
    std::uint64_t bytes = 0;
    for (unsigned i = 0; i < 25; ++i)
        if (cache->find(i)) bytes += 10 * (100 + i);
    EXPECT_EQ(bytes, cache->usedBytes());
}

} // namespace
