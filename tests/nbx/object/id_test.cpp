#include <nbx/object/id.h>

#include <gtest/gtest.h>

#include <thread>
#include <unordered_map>
#include <vector>

using NBX::ID;

namespace {

TEST(ID, EqualTextsAreOneIdentifier) {
    const std::string built = std::string("NBX::") + "Shape";
    EXPECT_EQ(ID("NBX::Shape"), ID(built));
    EXPECT_EQ(ID("NBX::Shape").text(), ID(built).text());
    EXPECT_NE(ID("NBX::Shape"), ID("NBX::shape"));
    EXPECT_STREQ(ID("NBX::Shape").text(), "NBX::Shape");
}

TEST(ID, EmptyAndNullAreTheEmptyIdentifier) {
    EXPECT_TRUE(ID().isEmpty());
    EXPECT_EQ(ID(), ID(""));
    EXPECT_EQ(ID(), ID(static_cast<const char *>(nullptr)));
    EXPECT_FALSE(ID("x").isEmpty());
}

TEST(ID, IsOrderedByText) {
    EXPECT_LT(ID("a"), ID("b"));
    EXPECT_FALSE(ID("b") < ID("a"));
    EXPECT_FALSE(ID("a") < ID("a"));
    EXPECT_LT(ID(), ID("a"));
}

TEST(ID, ServesAsAKey) {
    std::unordered_map<ID, int> table;
    table["one"] = 1;
    table[ID(std::string("one"))] = 2;
    EXPECT_EQ(table.size(), 1U);
    EXPECT_EQ(table["one"], 2);
}

TEST(ID, ThreadsMakeTheSameIdentifiers) {
    std::vector<std::vector<const char *>> texts(4);
    std::vector<std::thread> threads;
    for (auto & own : texts)
        threads.emplace_back([&own] {
            for (int i = 0; i < 1000; ++i)
                own.push_back(ID("thread id " + std::to_string(i)).text());
        });
    for (std::thread & thread : threads)
        thread.join();
    for (const auto & own : texts)
        EXPECT_EQ(own, texts[0]);
}

} // namespace
