#include <nbx/container/map/hashtable.h>

#include <gtest/gtest.h>

#include <random>
#include <set>

#include <nbx/container/map/hashtableiterator.h>
#include <support/recordedreports.h>
#include <support/silentserializationmanager.h>

using namespace NBX;

namespace {

TEST(HashTable, HoldsEachElementOnce) {
    const SO<HashTable<std::wstring>> table(new HashTable<std::wstring>(17));
    EXPECT_TRUE(table->insert(L"a"));
    EXPECT_TRUE(table->insert(L"b"));
    EXPECT_FALSE(table->insert(L"a"));
    EXPECT_EQ(table->size(), 2U);
    EXPECT_TRUE(table->contains(L"a"));
    EXPECT_EQ(*table->find(L"b"), L"b");
    EXPECT_TRUE(table->remove(L"a"));
    EXPECT_FALSE(table->remove(L"a"));
    EXPECT_FALSE(table->contains(L"a"));
    EXPECT_EQ(table->find(L"a"), nullptr);
    table->clear();
    EXPECT_TRUE(table->isEmpty());
    EXPECT_FALSE(table->contains(L"b"));
    EXPECT_TRUE(table->insert(L"b"));
}

TEST(HashTable, OrderIsThatOfInsertionAndTheLastFillsAHole) {
    const SO<HashTable<int>> table(new HashTable<int>);
    for (const int value : {5, 3, 9, 1})
        table->insert(value);
    const SO<Iterator<int>> elements(new HashTableIterator<int>(table.get()));
    EXPECT_EQ(std::vector<int>(elements->beginSTL(), elements->endSTL()), (std::vector<int>{5, 3, 9, 1}));
    table->remove(3);
    EXPECT_EQ(std::vector<int>(elements->beginSTL(), elements->endSTL()), (std::vector<int>{5, 1, 9}));
    table->remove(9);
    EXPECT_EQ(std::vector<int>(elements->beginSTL(), elements->endSTL()), (std::vector<int>{5, 1}));
    EXPECT_EQ(elements->container(), table.get());
}

/// Law: the table agrees with a sorted set under any mix of operations.
TEST(HashTable, AgreesWithASet) {
    std::mt19937 random(11);
    const SO<NonPersistentHashTable<unsigned>> table(new NonPersistentHashTable<unsigned>);
    std::set<unsigned> expected;
    for (int i = 0; i < 20000; ++i) {
        const unsigned value = random() % 500;
        if (random() % 2)
            EXPECT_EQ(table->insert(value), expected.insert(value).second);
        else
            EXPECT_EQ(table->remove(value), expected.erase(value) == 1);
        ASSERT_EQ(table->size(), expected.size());
    }
    std::set<unsigned> found;
    for (unsigned i = 0; i < table->size(); ++i)
        found.insert(table->element(i));
    EXPECT_EQ(found, expected);
}

TEST(HashTable, ReleasesWhatIsRemoved) {
    const SO<NonPersistentHashTable<SO<SharedObj>>> table(new NonPersistentHashTable<SO<SharedObj>>);
    const SO<SharedObj> a(new SharedObj), b(new SharedObj);
    table->insert(a);
    table->insert(b);
    EXPECT_EQ(a->references(), 2);
    table->remove(a);
    EXPECT_EQ(a->references(), 1);
    table->clear();
    EXPECT_EQ(b->references(), 1);
}

TEST(HashTable, ANonPersistentOneCannotBeStored) {
    const RecordedReports reports;
    SilentSerializationManager manager;
    SO<SharedObj>(new NonPersistentHashTable<int>)->serialize(manager);
    EXPECT_EQ(
        reports.count(3, L"L\"Not implemented\"",
                      L"NBX::NonPersistentHashTable<int>::serialize() not supported: use HashTable<T> for "
                      L"serialization instead!"),
        1U)
        << reports;
}

} // namespace
