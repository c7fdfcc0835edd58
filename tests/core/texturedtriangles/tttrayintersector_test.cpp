#include <gtest/gtest.h>

#include <nbx/engine/engine.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/scene/node/scenething.h>
#include <support/recordedreports.h>

#include "core/texturedtriangles/smalltree.h"

namespace ZMT::CORE {
namespace {

using NBX::SO;
using V = NBX::Vector3Base<double>;

struct TTTRayIntersectorTest : testing::Test {
    RecordedReports reports;
    SmallTree small{2};
    SO<NBX::Engine> engine{new NBX::Engine()};
    SO<NBX::SceneThing> scene{new NBX::SceneThing()};
    SO<NBX::RayTracingTechnique> ray;

    void SetUp() override { scene->append(small.tree.get()); }
    void TearDown() override { EXPECT_TRUE(reports.empty()) << reports; }
    /// Along z from in front of the tree.
    bool hits(double x, double y, double z = -10.0) {
        ray = new NBX::RayTracingTechnique(NBX::Ray(V(x, y, z), V(0, 0, 1)));
        return ray->trace(engine.get(), scene.get());
    }
};

TEST_F(TTTRayIntersectorTest, HitsTheTrianglesOfEveryLeaf) {
    for (unsigned x = 0; x < 4; ++x)
        for (unsigned y = 0; y < 4; ++y) {
            ASSERT_TRUE(hits(x + 0.3, y + 0.6));
            EXPECT_DOUBLE_EQ(ray->nearestHit().distance, 10.0);
            EXPECT_NEAR((ray->nearestHit().point - V(x + 0.3, y + 0.6, 0)).length(), 0.0, 1e-12);
            const RenderNode & leaf = small.node({(y / 2) * 2 + x / 2, (y % 2) * 2 + x % 2})->content;
            EXPECT_EQ(ray->nearestHit().shape.get(), leaf.triangles.get());
        }
}

TEST_F(TTTRayIntersectorTest, MissesBesideAndBehind) {
    EXPECT_FALSE(hits(5, 1));
    EXPECT_FALSE(hits(1, 1, 1.0));
}

TEST_F(TTTRayIntersectorTest, LeavesOutNodesWhoseBoxTheRayMisses) {
    small.node({0})->content.bounds = NBX::Bounds(V(0, 0, 0), V(0.5, 0.5, 0));
    EXPECT_TRUE(hits(0.3, 0.3));
    EXPECT_FALSE(hits(0.7, 0.7));
    small.node({3, 3})->content.bounds = NBX::Bounds();
    small.tree->geometryChanged();
    EXPECT_FALSE(hits(3.5, 3.5));
    EXPECT_TRUE(hits(2.5, 2.5));
}

TEST_F(TTTRayIntersectorTest, HitsUntexturedGeometryAlsoWithoutATree) {
    const SO<SmallTree::Mesh> square = small.node({0, 0})->content.triangles;
    const SO<TexturedTriangleTree> tree(new TexturedTriangleTree());
    tree->setUntexturedGeometry(square);
    scene->clear();
    scene->append(tree.get());
    EXPECT_TRUE(hits(0.5, 0.25));
    EXPECT_FALSE(hits(1.5, 0.25));
    scene->append(new TexturedTriangleTree());
    EXPECT_TRUE(hits(0.5, 0.25));
}

TEST_F(TTTRayIntersectorTest, TheNearestOfBothCounts) {
    SmallTree nearer(0);
    const auto positions =
        nearer.nodes->root()->content.triangles->data()->buffer(SmallTree::Mesh::Data::VERTEX_ID);
    auto * at = static_cast<float *>(positions->mapPointer());
    for (unsigned i = 2; i < 18; i += 3)
        at[i] = -3.0F;
    positions->unmapPointer();
    small.tree->setUntexturedGeometry(nearer.nodes->root()->content.triangles);
    ASSERT_TRUE(hits(1.5, 1.5));
    EXPECT_DOUBLE_EQ(ray->nearestHit().distance, 7.0);
}

TEST_F(TTTRayIntersectorTest, ANodeThatIsEnteredLaterMayBeHitBefore) {
    // One leaf's box reaches far towards the ray; another leaf lies in front of its triangles.
    RenderNode & behind = small.node({0, 0})->content;
    RenderNode & before = small.node({3, 3})->content;
    behind.bounds = NBX::Bounds(V(0, 0, -9), V(1, 1, 0));
    small.node({0})->content.bounds += behind.bounds;
    before.triangles = SmallTree(2).node({0, 0})->content.triangles;
    const auto positions = before.triangles->data()->buffer(SmallTree::Mesh::Data::VERTEX_ID);
    for (unsigned i = 2; i < 18; i += 3)
        static_cast<float *>(positions->mapPointer())[i] = -3.0F;
    positions->unmapPointer();
    before.bounds = before.triangles->boundingBox();
    for (const std::vector<unsigned> & path : {std::vector<unsigned>{3}, std::vector<unsigned>{}})
        small.node(path)->content.bounds += before.bounds;
    ASSERT_TRUE(hits(0.5, 0.25));
    EXPECT_DOUBLE_EQ(ray->nearestHit().distance, 7.0);
}

TEST_F(TTTRayIntersectorTest, LeavesWithoutTrianglesAreNothing) {
    small.node({1, 1})->content.triangles = nullptr;
    EXPECT_FALSE(hits(3.5, 0.5));
}

} // namespace
} // namespace ZMT::CORE
