#include <nbx/container/map/useorder.h>

#include <gtest/gtest.h>

#include <string>

namespace {

struct Entry {
    char name;
    unsigned size;
};
using Order = NBX::UseOrder<Entry, unsigned long>;

std::string namesOf(Order & order) {
    std::string names;
    for (const Entry & entry : order)
        names += entry.name;
    return names;
}

struct UseOrderTest : testing::Test {
    Order order;
    Order::Entries taken;
    Order::Position a = order.add({'a', 1}, false);
    Order::Position b = order.add({'b', 20}, false);
    Order::Position c = order.add({'c', 300}, false);
};

TEST_F(UseOrderTest, BeginsWithWhatWasUsedLast) {
    EXPECT_EQ(namesOf(order), "cba");
    order.use(a, false);
    EXPECT_EQ(namesOf(order), "acb");
    EXPECT_EQ(order.oldest(), b);
}

TEST_F(UseOrderTest, AddsUpSizes) {
    EXPECT_EQ(order.total(), 321U);
    order.resize(b, 5);
    EXPECT_EQ(order.total(), 306U);
    order.take(c, taken);
    EXPECT_EQ(order.total(), 6U);
    EXPECT_EQ(order.count(), 2U);
    order.takeAll(taken);
    EXPECT_EQ(order.total(), 0U);
    EXPECT_TRUE(order.isEmpty());
    EXPECT_EQ(taken.size(), 3U);
    EXPECT_EQ(taken.front().name, 'c');
}

TEST_F(UseOrderTest, KeepsWhatWasUsedInTheFrame) {
    order.use(b, true);
    order.use(c, true);
    EXPECT_EQ(order.oldest(), a);
    order.take(a, taken);
    EXPECT_EQ(order.oldest(), order.end());
    order.forgetFrame();
    EXPECT_EQ(order.oldest(), b);
}

TEST_F(UseOrderTest, UsingTheFirstOfTheFrameAgainLeavesThoseBehindOutside) {
    order.use(b, true);
    order.use(c, true);
    order.use(b, true);
    order.take(a, taken);
    EXPECT_EQ(namesOf(order), "bc");
    EXPECT_EQ(order.oldest(), order.end());
    order.use(c, true);
    EXPECT_EQ(order.oldest(), order.end());
}

TEST_F(UseOrderTest, TakingTheFirstOfTheFrameKeepsTheOthersOfIt) {
    order.use(b, true);
    order.use(c, true);
    order.take(b, taken);
    EXPECT_EQ(order.oldest(), a);
    order.take(a, taken);
    EXPECT_EQ(order.oldest(), order.end());
}

TEST_F(UseOrderTest, TakingTheOnlyOneOfTheFrameEndsItsMark) {
    order.use(a, true);
    order.take(a, taken);
    EXPECT_EQ(order.oldest(), b);
    order.use(c, true);
    order.take(b, taken);
    EXPECT_EQ(order.oldest(), order.end());
}

TEST_F(UseOrderTest, HasNoOldestWithoutEntries) {
    order.takeAll(taken);
    EXPECT_EQ(order.oldest(), order.end());
    order.add({'d', 1}, true);
    EXPECT_EQ(order.oldest(), order.end());
}

} // namespace
