#include <nbx/container/space/boundingboxtree.h>

#include <gtest/gtest.h>

#include <random>

#include <nbx/object/so.h>
#include <support/recordedreports.h>

using namespace NBX;
using V = Vector3Base<double>;

namespace {

const Bounds s_space(V(0, 0, 0), V(100, 100, 100));

TEST(BoundingBoxTree, EmptyFindsNothing) {
    EXPECT_TRUE(
        SO<BoundingBoxTree>(new BoundingBoxTree(s_space, 5, 50))->findOverlappingBoxes(s_space).empty());
}

TEST(BoundingBoxTree, TouchingBoxesOverlap) {
    const SO<BoundingBoxTree> tree(new BoundingBoxTree(s_space, 5, 50));
    tree->insert(Bounds(V(0, 0, 0), V(10, 10, 10)), 3);
    EXPECT_EQ(tree->findOverlappingBoxes(Bounds(V(10, 10, 10), V(20, 20, 20))), std::vector<int>{3});
    EXPECT_TRUE(tree->findOverlappingBoxes(Bounds(V(10.1, 10, 10), V(20, 20, 20))).empty());
    EXPECT_TRUE(tree->findOverlappingBoxes(Bounds()).empty());
}

TEST(BoundingBoxTree, AnUndefinedBoxIsReportedAndLeftOut) {
    const RecordedReports reports;
    const SO<BoundingBoxTree> tree(new BoundingBoxTree(s_space, 5, 50));
    tree->insert(Bounds(), 3);
    EXPECT_EQ(reports.count(0, L"box.isDefined()", L"box is undefined"), 1U);
    EXPECT_EQ(tree->size(), 0U);
    EXPECT_FALSE(tree->remove(Bounds(), 3));
}

TEST(BoundingBoxTree, ManyEqualBoxesEndAtTheGreatestDepth) {
    const SO<BoundingBoxTree> tree(new BoundingBoxTree(s_space, 5, 50));
    for (int i = 0; i < 500; ++i)
        tree->insert(Bounds(V(1, 1, 1)), i);
    EXPECT_EQ(tree->findOverlappingBoxes(Bounds(V(1, 1, 1))).size(), 500U);
}

TEST(BoundingBoxTree, DegenerateAndUndefinedSpacesWork) {
    for (const Bounds & space : {Bounds(V(1, 1, 1)), Bounds()}) {
        const SO<BoundingBoxTree> tree(new BoundingBoxTree(space, 1, 50));
        for (int i = 0; i < 10; ++i)
            tree->insert(Bounds(V(i, 0, 0)), i);
        EXPECT_EQ(tree->findOverlappingBoxes(Bounds(V(2, 0, 0), V(4, 0, 0))), (std::vector<int>{2, 3, 4}));
    }
}

/// Law: the tree finds what trying all boxes finds, with boxes inside, across and outside of its space,
/// while boxes come and go.
TEST(BoundingBoxTree, AgreesWithTryingAllBoxes) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> place(-20, 120), size(0, 15);
    const auto box = [&] {
        const V corner(place(random), place(random), place(random));
        return Bounds(corner, corner + V(size(random), size(random), size(random)));
    };
    const SO<BoundingBoxTree> tree(new BoundingBoxTree(s_space, 5, 50));
    std::vector<std::pair<Bounds, int>> all;
    for (int i = 0; i < 2000; ++i) {
        all.emplace_back(box(), i);
        tree->insert(all.back().first, i);
        if (i % 3 == 0) {
            const std::size_t victim = random() % all.size();
            EXPECT_TRUE(tree->remove(all[victim].first, all[victim].second));
            EXPECT_FALSE(tree->remove(all[victim].first, all[victim].second));
            all.erase(all.begin() + static_cast<std::ptrdiff_t>(victim));
        }
    }
    EXPECT_EQ(tree->size(), all.size());
    for (int i = 0; i < 200; ++i) {
        const Bounds query = box();
        std::vector<int> expected;
        for (const auto & [candidate, number] : all)
            if (candidate.intersects(query)) expected.push_back(number);
        EXPECT_EQ(tree->findOverlappingBoxes(query), expected);
    }
}

} // namespace
