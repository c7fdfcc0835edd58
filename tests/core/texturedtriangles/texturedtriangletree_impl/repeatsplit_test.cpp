#include "core/texturedtriangles/texturedtriangletree_impl/repeatsplit.h"

#include <gtest/gtest.h>

#include "trianglemeshes.h"

namespace {

using namespace NBX;
using namespace TriangleMeshes;
using ZMT::CORE::RepeatSplit;
using ZMT::CORE::TriangleCollector;
using ZMT::CORE::TriangleLists;

TriangleLists listsOf(const Vectors & vertices, const Vectors & texCoords) {
    return {vertices, texCoords, std::vector<Color>(vertices.size(), Color::white)};
}

TriangleLists oneTriangle(double repeatS, double repeatT) {
    return listsOf({V(0, 0, 0), V(8, 0, 0), V(0, 8, 0)}, {V(0, 0, 0), V(repeatS, 0, 0), V(0, repeatT, 0)});
}

double largestDifference(const TriangleLists & lists, unsigned axis) {
    double largest = 0.0;
    for (std::size_t i = 0; i < lists.texCoords.size(); i += 3)
        for (std::size_t k = 0; k < 3; ++k)
            largest = std::max(
                largest, std::abs(lists.texCoords[i + k][axis] - lists.texCoords[i + (k + 1) % 3][axis]));
    return largest;
}

TEST(RepeatSplit, HalvesAtTheMiddleOfTheEdgeThatRepeatsMost) {
    TriangleLists lists = listsOf({V(0, 0, 0), V(8, 0, 0), V(0, 8, 0)}, {V(0, 0, 0), V(4, 0, 0), V(2, 1, 0)});
    lists.colors = {Color::black, Color::white, Color::black};
    const RepeatSplit::Result result = RepeatSplit::apply(lists, 3.9);
    EXPECT_EQ(result.splits, 1U);
    ASSERT_EQ(lists.vertices.size(), 6U);
    EXPECT_EQ(lists.vertices,
              (Vectors{V(0, 0, 0), V(4, 0, 0), V(0, 8, 0), V(4, 0, 0), V(8, 0, 0), V(0, 8, 0)}));
    EXPECT_EQ(lists.texCoords[1], V(2, 0, 0));
    EXPECT_EQ(lists.colors[1], Color(0.5F, 0.5F, 0.5F));
    EXPECT_EQ(lists.colors[4], Color::white);
}

TEST(RepeatSplit, OfEqualEdgesTheFirstIsHalved) {
    TriangleLists lists = oneTriangle(4.0, 1.0);
    RepeatSplit::apply(lists, 3.9);
    const Vectors first(lists.vertices.begin(), lists.vertices.begin() + 3);
    EXPECT_EQ(first, (Vectors{V(0, 0, 0), V(4, 0, 0), V(0, 8, 0)}));
}

TEST(RepeatSplit, LooksAtTheLargerCoordinate) {
    TriangleLists lists = listsOf({V(0, 0, 0), V(8, 0, 0), V(0, 8, 0)}, {V(0, 0, 0), V(3, 2, 0), V(0, 4, 0)});
    EXPECT_EQ(RepeatSplit::apply(lists, 3.0).splits, 1U);
    EXPECT_EQ(lists.vertices,
              (Vectors{V(0, 8, 0), V(0, 4, 0), V(8, 0, 0), V(0, 4, 0), V(0, 0, 0), V(8, 0, 0)}));
}

TEST(RepeatSplit, TheLimitItselfIsNoReasonToSplit) {
    TriangleLists lists = oneTriangle(4.0, 4.0);
    const Vectors before = lists.vertices;
    EXPECT_EQ(RepeatSplit::apply(lists, 4.0).splits, 0U);
    EXPECT_EQ(lists.vertices, before);
    EXPECT_GT(RepeatSplit::apply(lists, 3.99).splits, 0U);
}

TEST(RepeatSplit, FourHundredRepeatsEnd) {
    TriangleLists lists = oneTriangle(400.0, 3.0);
    const RepeatSplit::Result result = RepeatSplit::apply(lists, 1.0);
    EXPECT_EQ(result.leftWhole, 0U);
    EXPECT_LE(largestDifference(lists, 0), 1.0);
    EXPECT_LE(largestDifference(lists, 1), 1.0);
    EXPECT_EQ(lists.vertices.size() / 3, result.splits + 1);
    EXPECT_LT(result.splits, 20000U);
}

TEST(RepeatSplit, WhatRepeatsWithoutBoundStaysWhole) {
    for (const double repeats : {1e6, 1e30, 1e300}) {
        TriangleLists lists = oneTriangle(repeats, repeats);
        const RepeatSplit::Result result = RepeatSplit::apply(lists, 1.0);
        EXPECT_EQ(result.splits, 0U);
        EXPECT_EQ(result.leftWhole, 1U);
        EXPECT_EQ(lists.vertices.size(), 3U);
    }
    TriangleLists lists = oneTriangle(1.0, 1.0);
    EXPECT_EQ(RepeatSplit::apply(lists, 1e-300).leftWhole, 1U);
}

TEST(RepeatSplit, AMeshIsSplitUpToABudget) {
    TriangleLists lists;
    for (unsigned i = 0; i < 100; ++i) {
        const TriangleLists one = oneTriangle(150.0, 150.0);
        lists.vertices.insert(lists.vertices.end(), one.vertices.begin(), one.vertices.end());
        lists.texCoords.insert(lists.texCoords.end(), one.texCoords.begin(), one.texCoords.end());
        lists.colors.insert(lists.colors.end(), one.colors.begin(), one.colors.end());
    }
    const RepeatSplit::Result result = RepeatSplit::apply(lists, 1.0);
    EXPECT_EQ(result.splits, TriangleCollector::maxSplitsOfMesh);
    EXPECT_GT(result.leftWhole, 0U);
    EXPECT_LT(result.leftWhole, 100U);
    EXPECT_EQ(lists.vertices.size() / 3, 100 + result.splits);
}

TEST(RepeatSplit, PiecesHaveTheAreaTheMappingAndTheWindingOfTheirTriangle) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (unsigned round = 0; round < 200; ++round) {
        const Mesh mesh = randomMesh(random, 1);
        TriangleLists lists = listsOf(valuesOf(mesh.geometry->newVertexIterator()),
                                      valuesOf(mesh.geometry->newTextureIterator(0)));
        const TriangleLists whole = lists;
        const V normal = (whole.vertices[1] - whole.vertices[0]).cross(whole.vertices[2] - whole.vertices[0]);
        const RepeatSplit::Result result = RepeatSplit::apply(lists, 0.5);
        EXPECT_EQ(result.leftWhole, 0U);
        EXPECT_EQ(lists.vertices.size() / 3, 1 + result.splits);
        EXPECT_EQ(lists.colors.size(), lists.vertices.size());
        EXPECT_LE(largestDifference(lists, 0), 0.5);
        EXPECT_LE(largestDifference(lists, 1), 0.5);
        V sum, texSum;
        for (std::size_t i = 0; i < lists.vertices.size(); i += 3) {
            const auto cross = [i](const Vectors & v) { return (v[i + 1] - v[i]).cross(v[i + 2] - v[i]); };
            sum += cross(lists.vertices);
            texSum += cross(lists.texCoords);
            EXPECT_GE(cross(lists.vertices).dot(normal), 0.0);
        }
        EXPECT_NEAR((sum - normal).length(), 0.0, 1e-9 * (1.0 + normal.length()));
        const V texNormal =
            (whole.texCoords[1] - whole.texCoords[0]).cross(whole.texCoords[2] - whole.texCoords[0]);
        EXPECT_NEAR(texSum.z, texNormal.z, 1e-9 * (1.0 + std::abs(texNormal.z)));
    }
}

} // namespace
