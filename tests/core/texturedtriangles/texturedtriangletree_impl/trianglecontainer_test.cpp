#include "core/texturedtriangles/texturedtriangletree_impl/trianglecontainer.h"

#include <gtest/gtest.h>

#include <nbx/container/sequence/constantiterator.h>
#include <support/recordedreports.h>

#include "trianglemeshes.h"

namespace {

using namespace NBX;
using namespace TriangleMeshes;
using ZMT::CORE::TriangleContainer;
using TriangleID = TriangleContainer::TriangleID;

SO<TriangleContainer> twoMeshes() {
    const SO<PolygonSet> first =
        setOf({V(0, 0, 0), V(2, 0, 0), V(0, 2, 0), V(0, 0, 0), V(0, 0, 4), V(0, 6, 0)},
              {V(0, 0, 0), V(1, 0, 0), V(0, 1, 0), V(5, 5, 0), V(6, 5, 0), V(5, 7, 0)});
    first->setColorIterator(
        new Array<Color>({Color::red, Color::green, Color::blue, Color::gold, Color::black, Color::yellow}));
    first->setTextureIterator(sequence(Vectors(6, V(9, 9, 0))), 1);
    return new TriangleContainer(
        meshesOf({{wrapper(), first}, {wrapper(), setOf({V(1, 1, 1), V(2, 2, 2), V(3, 3, 3)})}}));
}

TEST(TriangleContainer, NumbersTrianglesByMeshThenTriangle) {
    EXPECT_LT((TriangleID{0, 7}), (TriangleID{1, 0}));
    EXPECT_LT((TriangleID{1, 0}), (TriangleID{1, 1}));
    EXPECT_EQ((TriangleID{1, 1}), (TriangleID{1, 1}));
    const SO<TriangleContainer> container = twoMeshes();
    EXPECT_EQ(container->numberOfMeshes(), 2U);
    EXPECT_EQ(container->numberOfTriangles(0), 2U);
    EXPECT_EQ(container->numberOfTriangles(1), 1U);
    EXPECT_EQ(container->mesh(1).geometry->triangles(), 1U);
}

TEST(TriangleContainer, KnowsAreasCornersAndColors) {
    const SO<TriangleContainer> container = twoMeshes();
    EXPECT_EQ(container->area({0, 0}), 2.0);
    EXPECT_EQ(container->area({0, 1}), 12.0);
    EXPECT_EQ(container->area({1, 0}), 0.0);
    const TriangleContainer::Triangle triangle = container->triangle({0, 1});
    EXPECT_EQ(triangle.vertices[2], V(0, 6, 0));
    EXPECT_EQ(triangle.texCoords[1], V(6, 5, 0));
    EXPECT_EQ(container->triangleOfSet1({0, 1}).texCoords[1], V(9, 9, 0));
    EXPECT_EQ(container->triangleOfSet1({0, 1}).vertices[2], V(0, 6, 0));
    EXPECT_EQ(container->color({0, 1}, 2), Color::yellow);
    EXPECT_EQ(container->color({1, 0}, 0), Color::white);
    EXPECT_EQ(container->triangle({1, 0}).texCoords[0], V());
}

TEST(TriangleContainer, SetsTextureCoordinatesInPlace) {
    const SO<TriangleContainer> container = twoMeshes();
    const SO<PolygonSet> geometry = container->mesh(0).geometry;
    const SO<PolygonSet::Vertices> before = geometry->newTextureIterator(0);
    container->setTexCoords({0, 1}, {V(1, 2, 0), V(3, 4, 0), V(5, 6, 0)});
    EXPECT_EQ(geometry->newTextureIterator(0), before);
    EXPECT_EQ(before->get(2), V(0, 1, 0));
    EXPECT_EQ(before->get(3), V(1, 2, 0));
    EXPECT_EQ(before->get(5), V(5, 6, 0));
}

TEST(TriangleContainer, CoordinatesThatAreNoArrayAreReported) {
    const SO<TriangleContainer> container = twoMeshes();
    container->mesh(0).geometry->setTextureIterator(new ConstantIterator<V>(V(), 6));
    RecordedReports reports;
    container->setTexCoords({0, 1}, {});
    EXPECT_EQ(reports.count(0, L"texCoordPointer", L"texture coordinates must be stored as an array"), 1U)
        << reports;
    container->mesh(0).geometry->setTextureIterator(sequence(Vectors(4, V(8, 8, 8))));
    container->setTexCoords({0, 1}, {});
    EXPECT_EQ(reports.count(0, L"texCoords->size()>index", L"index out of range"), 2U) << reports;
    EXPECT_EQ(container->mesh(0).geometry->newTextureIterator(0)->get(3), V()) << "what there is";
}

TEST(TriangleContainer, TrianglesThatDoNotExistAreReported) {
    const SO<TriangleContainer> container = twoMeshes();
    RecordedReports reports;
    for (const TriangleID & id : {TriangleID{2, 0}, TriangleID{0, 2}, TriangleID{-1, 0}, TriangleID{0, -1}}) {
        reports.clear();
        EXPECT_EQ(container->area(id), 0.0);
        EXPECT_EQ(container->triangle(id).vertices[1], V());
        EXPECT_EQ(container->color(id, 0), Color::white);
        container->setTexCoords(id, {});
        EXPECT_EQ(reports.count(L"no such triangle"), 4U) << reports;
    }
    EXPECT_EQ(container->numberOfTriangles(2), 0U);
    const SO<TriangleContainer> none(new TriangleContainer(nullptr));
    EXPECT_EQ(reports.count(0, L"meshes", L"no meshes"), 1U) << reports;
    EXPECT_EQ(none->numberOfMeshes(), 0U);
}

TEST(TriangleContainer, MeshesWithoutGeometryHaveNoTriangles) {
    const SO<TriangleContainer> container(
        new TriangleContainer(meshesOf({{wrapper(), nullptr}, {wrapper(), new PolygonSet()}})));
    EXPECT_EQ(container->numberOfTriangles(0), 0U);
    EXPECT_EQ(container->numberOfTriangles(1), 0U);
}

} // namespace
