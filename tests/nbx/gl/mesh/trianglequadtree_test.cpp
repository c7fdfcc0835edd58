#include "nbx/gl/mesh/trianglequadtree.h"

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>

namespace {

using namespace NBX;
using V = Vector3Base<double>;
using Ranges = std::vector<TriangleQuadTree::Range>;

/// A triangle of about the length 1 at each of these places in x and z.
SO<PolygonSet> trianglesAt(const std::vector<std::pair<double, double>> & places) {
    std::vector<V> vertices;
    for (const auto & [x, z] : places)
        vertices.insert(vertices.end(), {V(x, 0, z), V(x, 0, z + 1), V(x + 1, 0, z)});
    return new PolygonSet(PolygonSet::PT_Triangles, new Array<V>(std::move(vertices)));
}

TEST(TriangleQuadTree, OrdersTrianglesByQuadrantsAndKnowsTheirRanges) {
    // North-east, south-west, north-west, south-east, and south-west again.
    const auto set = trianglesAt({{9, 9}, {0, 0}, {0, 9}, {9, 0}, {1, 1}});
    const TriangleQuadTree tree(*set, 1, Bounds(), true);
    std::vector<unsigned> order;
    for (const auto & corners : tree.triangles())
        order.push_back(corners[0] / 3);
    EXPECT_EQ((std::vector<unsigned>{1, 4, 3, 2, 0}), order);
    EXPECT_EQ(4U, tree.leaves());
    EXPECT_EQ((Ranges{{0, 2}}), tree.rangesIn(Bounds({-1, 0, -1}, {3, 0, 3})));
    EXPECT_EQ((Ranges{{0, 2}, {3, 1}}), tree.rangesIn(Bounds({-1, 0, -1}, {3, 0, 10})));
    EXPECT_EQ((Ranges{{0, 5}}), tree.rangesIn(tree.box()));
    EXPECT_TRUE(tree.rangesIn(Bounds({4, 0, 4}, {5, 0, 5})).empty());
    EXPECT_TRUE(tree.rangesIn(Bounds()).empty());
}

TEST(TriangleQuadTree, IsEmptyAtFirst) {
    const TriangleQuadTree tree;
    EXPECT_TRUE(tree.triangles().empty());
    EXPECT_EQ(0U, tree.leaves());
    EXPECT_FALSE(tree.box().isDefined());
    EXPECT_TRUE(tree.rangesIn(Bounds({0, 0, 0}, {1, 1, 1})).empty());
}

} // namespace
