#include <nbx/container/space/dynamicspacetree.h>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

using namespace NBX;

namespace {

using Tree = DynamicSpaceTree<int, 2>;

SO<Tree> tree() {
    return new Tree({0.0, 1.0}, {10.0, 11.0}, {0U, 2U});
}

TEST(DynamicSpaceTree, IsItsRootAtFirst) {
    const SO<Tree> t = tree();
    EXPECT_EQ(t->numberOfNodes(), 1U);
    EXPECT_TRUE(t->root().isDefined());
    EXPECT_EQ(t->root().identifier(), 1U);
    EXPECT_FALSE(t->hasChildren(t->root()));
    EXPECT_FALSE(t->child(t->root(), 0).isDefined());
    EXPECT_FALSE(t->parent(t->root()).isDefined());
    EXPECT_EQ(t->minimum(1), 1.0);
    EXPECT_EQ(t->maximum(0), 10.0);
    EXPECT_EQ(t->axis(1), 2U);
}

TEST(DynamicSpaceTree, ThePathToANodeIsTheNumbersOfTheChildren) {
    const SO<Tree> t = tree();
    EXPECT_TRUE(t->path(t->root()).empty());
    Tree::NodePointer node = t->root();
    for (const unsigned digit : {2U, 0U, 3U, 1U}) {
        t->createChildren(node);
        node = t->child(node, digit);
    }
    EXPECT_EQ(t->path(node), (std::vector<unsigned>{2, 0, 3, 1}));
    EXPECT_EQ(t->path(t->parent(node)), (std::vector<unsigned>{2, 0, 3}));
    EXPECT_TRUE(t->path(Tree::NodePointer()).empty());
}

TEST(DynamicSpaceTree, ChildrenKnowTheirParentAndKeepTheirContent) {
    const SO<Tree> t = tree();
    t->createChildren(t->root());
    for (unsigned i = 0; i < 4; ++i)
        t->child(t->root(), i)->content = static_cast<int>(i);
    const Tree::NodePointer third = t->child(t->root(), 2);
    // Nodes that come later do not move those that are there.
    int * content = &third->content;
    Tree::NodePointer deepest = third;
    for (int level = 0; level < 50; ++level) {
        t->createChildren(deepest);
        deepest = t->child(deepest, 0);
    }
    EXPECT_EQ(t->depth(deepest), 51U);
    EXPECT_EQ(&t->child(t->root(), 2)->content, content);
    EXPECT_EQ(*content, 2);
    EXPECT_EQ(t->parent(third), t->root());
    EXPECT_EQ(t->depth(t->root()), 0U);
    EXPECT_EQ(t->depth(third), 1U);
    EXPECT_EQ(t->depth(t->child(third, 1)), 2U);
}

TEST(DynamicSpaceTree, WrongNodesAreReported) {
    const SO<Tree> t = tree(), other = tree();
    const RecordedReports reports;
    t->createChildren(other->root());
    EXPECT_EQ(reports.count(L"not a node of this tree"), 1U);
    EXPECT_EQ(t->numberOfNodes(), 1U);
    EXPECT_FALSE(t->child(Tree::NodePointer(), 0).isDefined());
    t->createChildren(t->root());
    t->createChildren(t->root());
    EXPECT_EQ(reports.count(L"the node has children"), 1U);
    EXPECT_EQ(t->numberOfNodes(), 5U);
    EXPECT_FALSE(t->child(t->root(), 4).isDefined());
    EXPECT_EQ(reports.last().message, L"i out of range");
}

TEST(DynamicSpaceTree, PointersKeepTheTreeAndCompare) {
    SO<Tree> t = tree();
    t->createChildren(t->root());
    const Tree::NodePointer a = t->child(t->root(), 0), b = t->child(t->root(), 1);
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a == t->child(t->root(), 0));
    a->content = 5;
    t = nullptr;
    EXPECT_EQ(a->content, 5);
    EXPECT_FALSE(Tree::NodePointer());
    EXPECT_EQ(Tree::NodePointer().identifier(), 0U);
}

} // namespace
