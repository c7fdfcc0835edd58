#include <nbx/scene/shape/polygonset.h>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <support/recordedreports.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;
using Triangle = std::array<unsigned, 3>;

SO<Array<V>> vertexRow(unsigned n) {
    const SO<Array<V>> result(new Array<V>());
    for (unsigned i = 0; i < n; ++i)
        result->append(V(i, 2.0 * i, -1.0 * i));
    return result;
}

std::vector<Triangle> storedTriangles(const PolygonSet & set) {
    std::vector<Triangle> result;
    Triangle t{};
    for (unsigned i = 0; i < set.triangles(); ++i)
        if (set.triangle(i, t)) result.push_back(t);
    return result;
}

TEST(PolygonSet, EmptySetHasNoTrianglesAndNoBox) {
    const SO<PolygonSet> set(new PolygonSet());
    EXPECT_EQ(set->triangles(), 0U);
    EXPECT_FALSE(set->boundingBox().isDefined());
    EXPECT_EQ(set->getPrimitiveType(), 5);
}

TEST(PolygonSet, EveryPrimitiveTypeFallsIntoTriangles) {
    using T = std::vector<Triangle>;
    const auto of = [](PolygonSet::PrimitiveType type, unsigned n) {
        return storedTriangles(*SO<PolygonSet>(new PolygonSet(type, vertexRow(n))));
    };
    EXPECT_EQ(of(PolygonSet::PT_Triangles, 7), (T{{0, 1, 2}, {3, 4, 5}}));
    EXPECT_EQ(of(PolygonSet::PT_TriangleStrip, 5), (T{{0, 1, 2}, {2, 1, 3}, {2, 3, 4}}));
    EXPECT_EQ(of(PolygonSet::PT_TriangleFan, 5), (T{{0, 1, 2}, {0, 2, 3}, {0, 3, 4}}));
    EXPECT_EQ(of(PolygonSet::PT_Quads, 9), (T{{0, 1, 2}, {0, 2, 3}, {4, 5, 6}, {4, 6, 7}}));
    EXPECT_EQ(of(PolygonSet::PT_TriangleStrip, 2), T{});
}

TEST(PolygonSet, IndicesChooseTheVertices) {
    const SO<Array<unsigned>> indices(new Array<unsigned>(std::vector<unsigned>{3, 0, 2, 1, 1, 9}));
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, vertexRow(4), indices));
    EXPECT_EQ(set->triangles(), 2U);
    // The second triangle names a vertex that is not there.
    EXPECT_EQ(storedTriangles(*set), (std::vector<Triangle>{{3, 0, 2}}));
    Triangle t{};
    EXPECT_FALSE(set->triangle(2, t));
}

TEST(PolygonSet, BoxFollowsTheVertices) {
    const SO<Array<V>> vertices = vertexRow(3);
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, vertices));
    EXPECT_EQ(set->boundingBox(), Bounds(V(0, 0, -2), V(2, 4, 0)));
    vertices->append(V(10, 0, 0));
    set->modified();
    EXPECT_EQ(set->boundingBox(), Bounds(V(0, 0, -2), V(10, 4, 0)));
    set->setVertexIterator(nullptr);
    EXPECT_FALSE(set->boundingBox().isDefined());
}

TEST(PolygonSet, TextureUnitsAreBounded) {
    RecordedReports reports;
    const SO<PolygonSet> set(new PolygonSet());
    set->setTextureIterator(vertexRow(1), 8);
    EXPECT_EQ(reports.count(0, L"unit < maxTextureUnits", L"unit out of range"), 1U);
    set->setTextureIterator(vertexRow(1), 2);
    EXPECT_TRUE(set->newTextureIterator(2));
    EXPECT_FALSE(set->newTextureIterator(0));
    EXPECT_FALSE(set->newTextureIterator(99));
    set->setTextureIterator(nullptr, 2);
    EXPECT_FALSE(set->newTextureIterator(2));
}

TEST(PolygonSet, StoredAndReadIsTheSame) {
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_TriangleFan, vertexRow(5)));
    set->setTextureIterator(vertexRow(5), 1);
    set->setNormalIterator(vertexRow(5));
    const SO<PolygonSet> copy = storedCopy(*set);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->getPrimitiveType(), PolygonSet::PT_TriangleFan);
    EXPECT_EQ(storedTriangles(*copy), storedTriangles(*set));
    EXPECT_EQ(copy->boundingBox(), set->boundingBox());
    ASSERT_TRUE(copy->newTextureIterator(1));
    EXPECT_EQ(copy->newTextureIterator(1)->get(3), V(3, 6, -3));
    EXPECT_FALSE(copy->newTextureIterator(0));
    EXPECT_TRUE(copy->newNormalIterator());
    EXPECT_FALSE(copy->newIndexIterator());
}

} // namespace
