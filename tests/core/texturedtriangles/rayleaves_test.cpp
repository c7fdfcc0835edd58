#include "core/texturedtriangles/rayleaves.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <thread>

#include <GL/gl.h>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <nbx/engine/engine.h>
#include <nbx/engine/rayintersector.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/scaling.h>
#include <nbx/scene/view/translation.h>
#include <support/recordedreports.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

namespace ZMT::CORE {
namespace {

using NBX::Bounds;
using NBX::RayTracingTechnique;
using NBX::SO;
using V = NBX::Vector3Base<double>;
using Mesh = NBX::MappedVertexAttributeShapeGL;
using Node = RenderTree::NodePointer;
constexpr double s_infinite = std::numeric_limits<double>::infinity();

SO<Mesh> meshOf(const std::vector<V> & vertices) {
    const SO<NBX::PolygonSet> set(
        new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<V>(vertices)));
    return new Mesh(set.get(), NBX::BufferObjectGL::UP_Static);
}

/// Hands the mesh of each leaf to the engine whose box, and those of all above it, the ray meets; children
/// whose boxes are entered first come first, the last one of several.
class WalkingIntersector : public NBX::RayIntersector {
    NBX_TEMPLATE_CLASS(WalkingIntersector, NBX::RayIntersector)
public:
    NBX::ID target() const override { return TexturedTriangleTree::ClassNameNBX(); }
    bool intersect(NBX::Engine * engine, const NBX::Matrix4x4Base<double> &,
                   const NBX::Matrix4x4Base<double> &, const NBX::Shape * shape, const NBX::Ray & ray,
                   RayTracingTechnique *) override {
        const auto & nodes = dynamic_cast<const TexturedTriangleTree *>(shape)->getRenderTree();
        walk(engine, *nodes, nodes->root(), ray);
        return true;
    }

private:
    static void walk(NBX::Engine * engine, RenderTree & nodes, const Node & node, const NBX::Ray & ray) {
        if (!RayTracingTechnique::checkBounds(ray, node->content.bounds)) return;
        if (!nodes.hasChildren(node)) {
            if (node->content.triangles) engine->paint(node->content.triangles.get());
            return;
        }
        std::vector<Node> children;
        for (int i = 3; i >= 0; --i)
            children.push_back(nodes.child(node, unsigned(i)));
        std::stable_sort(children.begin(), children.end(), [&](const Node & a, const Node & b) {
            return RayTracingTechnique::enterBounds(ray, a->content.bounds) <
                   RayTracingTechnique::enterBounds(ray, b->content.bounds);
        });
        for (const Node & child : children)
            walk(engine, nodes, child, ray);
    }
};

/// Triangles on a lattice, many of which lie in several leaves at once, and others at random.
struct Fixture : testing::Test {
    RecordedReports reports;
    std::mt19937 random{11};
    SO<RenderTree> nodes{new RenderTree({0.0, 0.0}, {16.0, 16.0}, {0U, 2U})};
    SO<TexturedTriangleTree> tree{new TexturedTriangleTree()};
    SO<NBX::SceneThing> scene{new NBX::SceneThing()};
    std::vector<Node> leaves;

    void SetUp() override {
        grow(nodes->root(), 0, 0, 16);
        tree->setRenderTree(nodes);
        scene->append(tree.get());
    }
    void TearDown() override { EXPECT_TRUE(reports.empty()) << reports; }

    void grow(const Node & node, unsigned x, unsigned z, unsigned side) {
        RenderNode & content = node->content;
        if (side <= 2 || (side == 4 && random() % 3 == 0)) {
            leaves.push_back(node);
            if (random() % 9 == 0) return;
            content.triangles = meshOf(triangles(x, z, side));
            content.bounds = content.triangles->boundingBox();
            return;
        }
        nodes->createChildren(node);
        for (unsigned i = 0; i < 4; ++i) {
            grow(nodes->child(node, i), x + (i & 1U) * side / 2, z + (i >> 1U) * side / 2, side / 2);
            content.bounds += nodes->child(node, i)->content.bounds;
        }
    }
    /// Some reach into the leaves beside.
    std::vector<V> triangles(unsigned x, unsigned z, unsigned side) {
        std::vector<V> vertices;
        std::uniform_real_distribution<double> unit(0, 1);
        for (unsigned i = 0; i < 3 * (2 + random() % 30); ++i) {
            const bool isAtRandom = i / 3 % 2 == 0;
            const double across = isAtRandom ? unit(random) * side : double(random() % (side + 2));
            const double along = isAtRandom ? unit(random) * side : double(random() % (side + 2));
            vertices.emplace_back(x + across, isAtRandom ? unit(random) * 4 : double(random() % 5),
                                  z + along);
        }
        return vertices;
    }
    std::vector<NBX::Ray> rays(unsigned count) {
        std::uniform_real_distribution<double> place(-2, 18), height(-1, 6);
        const auto corner = [&] { return V(random() % 17, random() % 5, random() % 17); };
        std::vector<NBX::Ray> all;
        for (unsigned i = 0; i < count; ++i) {
            const V from(place(random), height(random), place(random));
            all.emplace_back(from, V(place(random), height(random), place(random)) - from);
            all.emplace_back(from, corner() - from);
            all.emplace_back(corner() - V(0, 10, 0), V(0, 0.5, 0));
            all.emplace_back(corner() + V(20, 0, 0.5), V(-3, 0, 0));
            all.emplace_back(corner(), corner() - corner());
            // Nearly along an axis, where one by the direction is no number, or hardly one.
            all.emplace_back(from + V(0, 9, 0), V(3e-310, -2, -1e-30));
            all.emplace_back(from - V(0, 0, 30), V(1e-13, -1e-300, 0.7));
            all.emplace_back((corner() + corner()) * 0.5 + V(0, 0, 30), V(0, 0, -1e-3));
        }
        return all;
    }

    static SO<RayTracingTechnique> trace(const NBX::Ray & ray, NBX::SceneNode * scene, bool walks) {
        const SO<NBX::Engine> engine(new NBX::Engine());
        const SO<WalkingIntersector> walking(new WalkingIntersector());
        if (walks) engine->pushHandler(walking.get());
        const SO<RayTracingTechnique> technique(new RayTracingTechnique(ray));
        technique->trace(engine.get(), scene);
        return technique;
    }
    static void expectSameHit(const RayTracingTechnique & found, const RayTracingTechnique & expected) {
        ASSERT_EQ(found.hasHit(), expected.hasHit());
        if (!found.hasHit()) return;
        EXPECT_EQ(found.nearestHit().distance, expected.nearestHit().distance);
        EXPECT_EQ(found.nearestHit().point, expected.nearestHit().point);
        EXPECT_EQ(found.nearestHit().normal, expected.nearestHit().normal);
        EXPECT_EQ(found.nearestHit().shape, expected.nearestHit().shape);
    }
    /// Returns the number of hits.
    unsigned expectSame(unsigned count) {
        unsigned hits = 0;
        for (const NBX::Ray & ray : rays(count)) {
            const auto found = trace(ray, scene.get(), false), expected = trace(ray, scene.get(), true);
            expectSameHit(*found, *expected);
            if (HasFatalFailure()) return hits;
            hits += found->hasHit() ? 1 : 0;
        }
        return hits;
    }
    Node leafWithTriangles() {
        return *std::find_if(leaves.begin(), leaves.end(),
                             [](const Node & leaf) { return leaf->content.triangles; });
    }
};
using RayLeavesTest = Fixture;

TEST_F(RayLeavesTest, FindsWhatAWalkFromLeafToLeafFinds) {
    EXPECT_GT(expectSame(300), 600U);
}

TEST_F(RayLeavesTest, FindsTheSameUnderATransformation) {
    scene->prepend(new NBX::Scaling(V(0.7, 1.3, 0.9)));
    scene->prepend(new NBX::Translation(V(0.3, -0.1, 1)));
    EXPECT_GT(expectSame(100), 100U);
}

TEST_F(RayLeavesTest, FindsTheSameBesideOtherShapes) {
    scene->append(meshOf({V(0, 1.5, 0), V(30, 1.5, 0), V(0, 1.5, 30)}).get());
    scene->prepend(meshOf({V(0, 2.5, 0), V(30, 2.5, 0), V(0, 2.5, 30)}).get());
    EXPECT_GT(expectSame(100), 200U);
}

TEST_F(RayLeavesTest, BoxesAboveThatLeaveOutTrianglesAreHeldAgainstTheRay) {
    // Of a child, of the root, and one above another that is wider again.
    nodes->child(nodes->root(), 1)->content.bounds = Bounds(V(9, 0, 1), V(14, 2, 5));
    for (unsigned i = 0; i < 4; ++i)
        if (const Node inner = nodes->child(nodes->root(), 2); nodes->hasChildren(inner))
            nodes->child(inner, i)->content.bounds = Bounds(V(0, 0, 0), V(20, 4, 20));
    nodes->root()->content.bounds = Bounds(V(1, -1, 1), V(15, 3.5, 15));
    tree->geometryChanged();
    EXPECT_GT(expectSame(200), 200U);
}

TEST_F(RayLeavesTest, BoxesThatAreNoNumbersAreHeldAgainstTheRay) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    leaves[0]->content.bounds =
        Bounds(V(-s_infinite, -s_infinite, -s_infinite), V(s_infinite, s_infinite, 8));
    leaves[1]->content.bounds = Bounds(V(nan, nan, nan), V(nan, nan, nan));
    leaves[2]->content.bounds = Bounds();
    tree->geometryChanged();
    EXPECT_GT(expectSame(100), 200U);
}

TEST_F(RayLeavesTest, MeshesThatAreDisabledAreNotHit) {
    expectSame(10);
    for (const Node & leaf : leaves)
        if (leaf->content.triangles && random() % 2 == 0) leaf->content.triangles->setEnableState(false);
    EXPECT_GT(expectSame(100), 100U);
}

TEST_F(RayLeavesTest, PositionsThatAreNoFloatsAreHitAsTheyAre) {
    using Data = Mesh::Data;
    const SO<Mesh::Buffer> positions(new Mesh::Buffer(GL_DOUBLE, 3, 3));
    const double corners[9] = {1, 6, 1, 3, 6.1, 1, 1, 6, 3.1};
    std::copy(std::begin(corners), std::end(corners), static_cast<double *>(positions->mapPointer()));
    positions->unmapPointer();
    const SO<Data> data(new Data(NBX::BufferObjectGL::UP_Static));
    data->setBuffer(Data::VERTEX_ID, positions);
    RenderNode & content = leafWithTriangles()->content;
    content.triangles = new Mesh(NBX::VertexAttributeShapeGL::PT_Triangles, data);
    content.bounds = Bounds(V(0, 0, 0), V(16, 7, 16));
    nodes->root()->content.bounds += content.bounds;
    for (unsigned i = 0; i < 4; ++i)
        nodes->child(nodes->root(), i)->content.bounds = nodes->root()->content.bounds;
    tree->geometryChanged();
    const auto hit = trace(NBX::Ray(V(1.5, 9, 1.5), V(0, -1, 0)), scene.get(), false);
    ASSERT_TRUE(hit->hasHit());
    EXPECT_EQ(hit->nearestHit().shape.get(), content.triangles.get());
    EXPECT_GT(expectSame(50), 100U);
}

/// Says that all meshes are hit where the ray begins.
class AtOriginIntersector : public NBX::RayIntersector {
    NBX_TEMPLATE_CLASS(AtOriginIntersector, NBX::RayIntersector)
public:
    NBX::ID target() const override { return Mesh::ClassNameNBX(); }
    bool intersect(NBX::Engine * engine, const NBX::Matrix4x4Base<double> &,
                   const NBX::Matrix4x4Base<double> &, const NBX::Shape * shape, const NBX::Ray & ray,
                   RayTracingTechnique * technique) override {
        technique->report(engine, ray.getOrigin(), V(0, 1, 0), shape);
        return true;
    }
};

TEST_F(RayLeavesTest, AnotherHandlerOfMeshesIsAsked) {
    scene->prepend(new AtOriginIntersector());
    const auto hit = trace(NBX::Ray(V(8.2, 20, 8.3), V(0, -1, 0)), scene.get(), false);
    ASSERT_TRUE(hit->hasHit());
    EXPECT_EQ(hit->nearestHit().distance, 0.0);
}

TEST_F(RayLeavesTest, RaysThatAreNoneHitNothing) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    for (const V & along : {V(), V(nan, -1, 0), V(0, -s_infinite, 0)})
        EXPECT_FALSE(trace(NBX::Ray(V(8.2, 20, 8.3), along), scene.get(), false)->hasHit());
    for (const V & from : {V(nan, 20, 8.3), V(8.2, s_infinite, 8.3)})
        EXPECT_FALSE(trace(NBX::Ray(from, V(0, -1, 0)), scene.get(), false)->hasHit());
}

TEST_F(RayLeavesTest, RaysBesideTheBoxOfTheTreeAskForNoTriangles) {
    const Bounds box = tree->boundingBox();
    const V beside = box.getURB() + V(1, 1, 1);
    EXPECT_FALSE(trace(NBX::Ray(beside, V(0, -1, 0)), scene.get(), false)->hasHit());
    EXPECT_EQ(tree->rayBytes(), 0U);
    trace(NBX::Ray(box.center() + V(0, 1000, 0), V(0, -1, 0)), scene.get(), false);
    EXPECT_GT(tree->rayBytes(), 0U);
}

TEST_F(RayLeavesTest, AnEmptyTreeIsNotHit) {
    const SO<TexturedTriangleTree> empty(new TexturedTriangleTree());
    EXPECT_EQ(empty->rayLeaves(), nullptr);
    empty->geometryChanged();
    empty->setRenderTree(new RenderTree());
    ASSERT_TRUE(empty->rayLeaves());
    scene->clear();
    scene->append(empty.get());
    EXPECT_FALSE(trace(NBX::Ray(V(0, 0, 0), V(0, -1, 0)), scene.get(), false)->hasHit());
}

TEST_F(RayLeavesTest, ChangesAreMetOnceTheyAreTold) {
    expectSame(10);
    const auto before = tree->rayLeaves();
    EXPECT_EQ(tree->rayLeaves(), before);
    const SO<TexturedTriangleTree> copy(new TexturedTriangleTree(*tree));
    const auto ofCopy = copy->rayLeaves();
    EXPECT_NE(ofCopy, before) << "copies have nodes of their own";
    for (const Node & leaf : leaves) {
        leaf->content.triangles = meshOf({V(1, 9, 1), V(12, 9, 1), V(1, 9, 13)});
        leaf->content.bounds = Bounds(V(0, 0, 0), V(16, 10, 16));
    }
    for (unsigned i = 0; i < 4; ++i)
        nodes->child(nodes->root(), i)->content.bounds = leaves[0]->content.bounds;
    nodes->root()->content.bounds = leaves[0]->content.bounds;
    const std::uint64_t number = tree->lastTransactionNo();
    tree->geometryChanged();
    EXPECT_GT(tree->lastTransactionNo(), number);
    const auto told = tree->rayLeaves();
    EXPECT_NE(told, before);
    const auto hit = trace(NBX::Ray(V(2, 20, 2), V(0, -1, 0)), scene.get(), false);
    ASSERT_TRUE(hit->hasHit());
    EXPECT_DOUBLE_EQ(hit->nearestHit().distance, 11.0);
    EXPECT_EQ(copy->rayLeaves(), ofCopy);
    tree->setRenderTree(new RenderTree());
    EXPECT_NE(tree->rayLeaves(), told);
}

TEST_F(RayLeavesTest, WhatHidesOrSharpensTheTreeLeavesThemAsTheyAre) {
    expectSame(10);
    const auto before = tree->rayLeaves();
    const std::size_t bytes = tree->rayBytes();
    tree->setQualityFactor(0.5);
    tree->enableMaxDistance(3.0);
    tree->disableMaxDistance();
    tree->registerTextureLayer(0, L"town.city", nullptr, TexturedTriangleTree::TextureFormatDXT1);
    tree->setLayerEnabled(0, false);
    tree->modified();
    EXPECT_EQ(tree->rayLeaves(), before);
    EXPECT_EQ(tree->rayBytes(), bytes);
}

TEST_F(RayLeavesTest, LeavesAreMadeWhenRaysGetThere) {
    EXPECT_EQ(tree->rayBytes(), 0U);
    const std::size_t atFirst = tree->rayLeaves()->bytes();
    EXPECT_EQ(tree->rayBytes(), atFirst);
    trace(NBX::Ray(V(3, 20, 3), V(0, 1, 0)), scene.get(), false);
    EXPECT_EQ(tree->rayLeaves()->bytes(), atFirst);
    trace(NBX::Ray(V(3, 20, 3), V(0, -1, 0)), scene.get(), false);
    const std::size_t afterOne = tree->rayLeaves()->bytes();
    EXPECT_GT(afterOne, atFirst);
    expectSame(100);
    EXPECT_GT(tree->rayLeaves()->bytes(), afterOne);
    const auto resident = TTTMemoryController::residentBytes(*tree);
    EXPECT_EQ(resident.rays, tree->rayLeaves()->bytes()) << "what rays have made counts as resident";
    tree->geometryChanged();
    EXPECT_EQ(TTTMemoryController::residentBytes(*tree).rays, 0U) << "and goes with the geometry";
}

TEST_F(RayLeavesTest, SeveralThreadsMayAskAtOnce) {
    const std::vector<NBX::Ray> all = rays(40);
    std::vector<SO<RayTracingTechnique>> expected;
    for (const NBX::Ray & ray : all)
        expected.push_back(trace(ray, scene.get(), true));
    tree->geometryChanged();
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (std::size_t i = 0; i < all.size(); ++i) {
                const std::size_t at = (i * (2 * t + 1)) % all.size();
                expectSameHit(*trace(all[at], scene.get(), false), *expected[at]);
            }
        });
    for (std::thread & thread : threads)
        thread.join();
}

} // namespace
} // namespace ZMT::CORE
