#include <nbx/container/map/lrumap.h>

#include <gtest/gtest.h>

#include <nbx/object/so.h>
#include <support/recordedreports.h>

using namespace NBX;

namespace {

std::string order(const LRUMap<char, int> & map) {
    std::string keys;
    for (const auto & entry : map.entries())
        keys.push_back(entry.first);
    return keys;
}

SO<LRUMap<char, int>> abc() {
    const SO<LRUMap<char, int>> map(new LRUMap<char, int>);
    map->insert('a', 1);
    map->insert('b', 2);
    map->insert('c', 3);
    return map;
}

TEST(LRUMap, FindingAndInsertingAreUses) {
    const auto map = abc();
    EXPECT_EQ(order(*map), "abc");
    EXPECT_EQ(*map->find('a'), 1);
    EXPECT_EQ(order(*map), "bca");
    map->insert('b', 7);
    EXPECT_EQ(order(*map), "cab");
    EXPECT_EQ(*map->peek('b'), 7);
    EXPECT_EQ(map->size(), 3U);
}

TEST(LRUMap, PeekingIsNoUse) {
    const auto map = abc();
    EXPECT_EQ(*map->peek('a'), 1);
    EXPECT_TRUE(map->contains('a'));
    EXPECT_EQ(order(*map), "abc");
    EXPECT_EQ(map->peek('x'), nullptr);
    EXPECT_EQ(map->find('x'), nullptr);
}

TEST(LRUMap, TheOldestGoesFirst) {
    const auto map = abc();
    map->find('a');
    EXPECT_EQ(map->oldest()->first, 'b');
    map->removeOldest();
    EXPECT_EQ(order(*map), "ca");
    EXPECT_TRUE(map->remove('c'));
    EXPECT_FALSE(map->remove('c'));
    map->clear();
    EXPECT_EQ(map->oldest(), nullptr);
    const RecordedReports reports;
    map->removeOldest();
    EXPECT_EQ(reports.last().message, L"map is empty");
}

} // namespace
