#include <nbx/container/sequence/stack.h>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

using namespace NBX;

namespace {

TEST(Stack, LastInFirstOut) {
    const SO<Stack<int>> stack(new Stack<int>);
    for (const int value : {1, 2, 3})
        stack->push(value);
    EXPECT_EQ(stack->top(), 3);
    stack->pop();
    EXPECT_EQ(stack->top(), 2);
    EXPECT_EQ(std::vector<int>(stack->beginSTL(), stack->endSTL()), (std::vector<int>{1, 2}));
}

TEST(Stack, AnEmptyOneIsReported) {
    const RecordedReports reports;
    const SO<Stack<int>> stack(new Stack<int>);
    stack->pop();
    EXPECT_EQ(stack->top(), 0);
    EXPECT_EQ(reports.count(L"stack is empty"), 2U);
}

} // namespace
