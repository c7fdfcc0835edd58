#include <nbx/engine/raytracingtechnique.h>

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <nbx/engine/engine.h>
#include <nbx/engine/rayintersector.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/shape/composite.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/scaling.h>
#include <nbx/scene/view/translation.h>

#include "engineprobes.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;

struct RayTracingTest : testing::Test {
    SO<Engine> engine{new Engine()};
    SO<SceneThing> scene{new SceneThing()};

    static SO<RayTracingTechnique> technique(const V & from, const V & along) {
        return new RayTracingTechnique(Ray(from, along));
    }
};

TEST_F(RayTracingTest, FindsTheNearestHitWhateverTheOrder) {
    const SO<Box> far(new Box(V(-1, -1, -12), V(1, 1, -10))), near(new Box(V(-1, -1, -6), V(1, 1, -4)));
    scene->append(far.get());
    scene->append(near.get());
    const auto ray = technique(V(0.1, 0.2, 0), V(0, 0, -3));
    ASSERT_TRUE(ray->trace(engine.get(), scene.get()));
    EXPECT_NEAR(ray->nearestHit().distance, 4.0, 1e-12);
    EXPECT_NEAR((ray->nearestHit().point - V(0.1, 0.2, -4)).length(), 0.0, 1e-12);
    EXPECT_NEAR((ray->nearestHit().normal - V(0, 0, 1)).length(), 0.0, 1e-12);
    scene->remove(near.get());
    ASSERT_TRUE(ray->trace(engine.get(), scene.get()));
    EXPECT_NEAR(ray->nearestHit().distance, 10.0, 1e-12);
}

TEST_F(RayTracingTest, TellsWhereBoxesAreEnteredAndHowFarItLooks) {
    const Bounds box(V(-1, -1, -12), V(1, 1, -10));
    constexpr double never = std::numeric_limits<double>::infinity();
    EXPECT_NEAR(RayTracingTechnique::enterBounds(Ray(V(0, 0, 0), V(0, 0, -2)), box), 5.0, 1e-12);
    EXPECT_EQ(RayTracingTechnique::enterBounds(Ray(V(0, 0, -11), V(0, 0, -2)), box), 0.0);
    EXPECT_EQ(RayTracingTechnique::enterBounds(Ray(V(0, 0, 0), V(0, 0, 2)), box), never);
    EXPECT_EQ(RayTracingTechnique::enterBounds(Ray(V(2, 0, 0), V(0, 0, -2)), box), never);
    EXPECT_EQ(RayTracingTechnique::enterBounds(Ray(V(0, 0, 0), V(0, 0, -2)), Bounds()), never);
    scene->append(new Box(box));
    const auto ray = technique(V(0, 0, 0), V(0, 0, -2));
    EXPECT_EQ(ray->limit(), never);
    ASSERT_TRUE(ray->trace(engine.get(), scene.get()));
    EXPECT_GE(ray->limit(), 5.0);
    EXPECT_NEAR(ray->limit(), 5.0, 1e-8);
}

TEST_F(RayTracingTest, MissesWhatLiesBesideAndBehind) {
    scene->append(new Box(V(-1, -1, -6), V(1, 1, -4)));
    EXPECT_FALSE(technique(V(0, 0, 0), V(0, 0, 1))->trace(engine.get(), scene.get()));
    EXPECT_FALSE(technique(V(2, 0, 0), V(0, 0, -1))->trace(engine.get(), scene.get()));
    EXPECT_FALSE(technique(V(0, 0, 0), V(0, 0, 0))->trace(engine.get(), scene.get()));
    // From within, the far side is hit.
    const auto within = technique(V(0, 0, -5), V(0, 0, -1));
    EXPECT_TRUE(within->trace(engine.get(), scene.get()));
    EXPECT_NEAR(within->nearestHit().distance, 1.0, 1e-12);
}

TEST_F(RayTracingTest, DistancesAreComparedInTheSceneNotInTheShapesFrames) {
    // In its own frame the scaled box is nearer; in the scene it is the farther one.
    const SO<SceneThing> scaled(new SceneThing(scene.get()));
    scaled->append(new Translation(V(0, 0, -20)));
    scaled->append(new Scaling(V(10, 10, 2)));
    scaled->append(new Box());
    scene->append(new Box(V(-1, -1, -6), V(1, 1, -4)));
    const auto ray = technique(V(0, 0, 0), V(0, 0, -1));
    ASSERT_TRUE(ray->trace(engine.get(), scene.get()));
    EXPECT_NEAR(ray->nearestHit().distance, 4.0, 1e-12);
    const auto beside = technique(V(3, 0, 0), V(0, 0, -1));
    ASSERT_TRUE(beside->trace(engine.get(), scene.get()));
    EXPECT_NEAR((beside->nearestHit().point - V(3, 0, -19)).length(), 0.0, 1e-12);
    EXPECT_NEAR((beside->nearestHit().normal - V(0, 0, 1)).length(), 0.0, 1e-12);
}

TEST_F(RayTracingTest, EachRayIsTakenIntoTheFrameOfItsOwnShape) {
    // Frames in turn, of which some differ in one number alone, and the first one again.
    for (const double x : {0.0, 5.0, 0.0, -5.0, 5.0, 5.0})
        for (const double z : {-20.0, -30.0}) {
            const SO<SceneThing> moved(new SceneThing());
            moved->append(new Translation(V(x, 0, z)));
            moved->append(new Scaling(V(1, 1, 2)));
            moved->append(new Box());
            const auto ray = technique(V(x + 0.1, 0.2, 0), V(0, 0, -1));
            ASSERT_TRUE(ray->trace(engine.get(), moved.get()));
            EXPECT_NEAR(ray->nearestHit().distance, -z - 1.0, 1e-12);
            EXPECT_NEAR((ray->nearestHit().normal - V(0, 0, 1)).length(), 0.0, 1e-12);
            EXPECT_FALSE(technique(V(x + 1.1, 0.2, 0), V(0, 0, -1))->trace(engine.get(), moved.get()));
        }
}

TEST_F(RayTracingTest, AShapeIsAskedOnce) {
    const SO<Box> box(new Box());
    scene->append(box.get());
    const auto ray = technique(V(0, 0, 5), V(0, 0, -1));
    ASSERT_TRUE(ray->trace(engine.get(), scene.get()));
    EXPECT_EQ(ray->activePass(), -1) << "when it is over";
    ray->start(engine.get());
    EXPECT_EQ(ray->activePass(), 0);
    EXPECT_FALSE(ray->nextPass(engine.get()));
    EXPECT_EQ(ray->activePass(), -1);
}

TEST_F(RayTracingTest, DisabledShapesAreNotHit) {
    const SO<Box> box(new Box());
    scene->append(box.get());
    box->setEnableState(false);
    EXPECT_FALSE(technique(V(0, 0, 5), V(0, 0, -1))->trace(engine.get(), scene.get()));
}

/// Hits every shape at its origin, and declines those named "complex".
class ProbeIntersector : public RayIntersector {
    NBX_TEMPLATE_CLASS(ProbeIntersector, RayIntersector)
public:
    ID target() const override { return ProbeShape::ClassNameNBX(); }
    bool intersect(Engine * engine, const Matrix4x4Base<double> & model,
                   const Matrix4x4Base<double> & inverse, const Shape * shape, const Ray & ray,
                   RayTracingTechnique * technique) override {
        EXPECT_EQ((model * inverse * V(1, 2, 3) - V(1, 2, 3)).length(), 0.0);
        EXPECT_EQ((ray.getOrigin() - technique->localRay(engine).getOrigin()).length(), 0.0);
        technique->report(engine, V(), V(0, 1, 0), shape);
        return true;
    }
};

TEST_F(RayTracingTest, ShapesGoToTheirIntersectorAndNotToTheirPainter) {
    const SO<ProbeIntersector> intersector(new ProbeIntersector());
    ProbeEngine::table().add(intersector.get());
    const SO<Engine> probes(new ProbeEngine());
    const SO<Shape> shape(new ProbeShape("x"));
    scene->append(new Translation(V(0, 0, -4)));
    scene->append(new ProbeAttribute("a"));
    scene->append(shape.get());
    scene->append(new ComplexProbeShape("c"));
    probeLog().clear();
    const auto ray = technique(V(), V(0, 0, -1));
    ASSERT_TRUE(ray->trace(probes.get(), scene.get()));
    intersector->setEnableState(false);
    // Neither painters of shapes nor of attributes are asked; of equally near hits the first is kept.
    EXPECT_EQ(takeProbeLog(), "");
    EXPECT_EQ(ray->nearestHit().shape, shape.get());
    EXPECT_NEAR(ray->nearestHit().distance, 4.0, 1e-12);
}

TEST(RayTracingTechnique, CheckBoundsCountsTheBorder) {
    const Bounds box(V(-1, -1, -1), V(1, 1, 1));
    struct Row {
        const char * name;
        V from, along;
        bool expected;
    };
    const Row rows[] = {
        {"through the middle", {0, 0, 5}, {0, 0, -1}, true},
        {"away from it", {0, 0, 5}, {0, 0, 1}, false},
        {"from within", {0, 0, 0}, {1, 2, 3}, true},
        {"along a face", {1, 0, 5}, {0, 0, -1}, true},
        {"along an edge", {1, 1, 5}, {0, 0, -1}, true},
        {"just beside", {1.0000001, 0, 5}, {0, 0, -1}, false},
        {"on to a corner", {2, 0, 1}, {-1, 1, 0}, true},
        {"past a corner", {2, 0.001, 1}, {-1, 1, 0}, false},
        {"begins on the border and leaves", {0, 0, 1}, {0, 0, 1}, true},
        {"without direction inside", {0, 0, 0}, {0, 0, 0}, true},
        {"without direction outside", {2, 0, 0}, {0, 0, 0}, false},
    };
    for (const Row & row : rows)
        EXPECT_EQ(RayTracingTechnique::checkBounds(Ray(row.from, row.along), box), row.expected) << row.name;
    EXPECT_FALSE(RayTracingTechnique::checkBounds(Ray(V(), V(0, 0, 1)), Bounds()));
    EXPECT_TRUE(
        RayTracingTechnique::checkBounds(Ray(V(0, 5, 0), V(0, -1, 0)), Bounds(V(-1, 0, -1), V(1, 0, 1))));
}

/// Makes the protected helper callable.
class Intersector : public RayIntersector {
    NBX_TEMPLATE_CLASS(Intersector, RayIntersector)
public:
    using RayIntersector::intersectTriangle;
    ID target() const override { return ID(); }
    bool intersect(Engine *, const Matrix4x4Base<double> &, const Matrix4x4Base<double> &, const Shape *,
                   const Ray &, RayTracingTechnique *) override {
        return false;
    }
};

TEST(RayIntersector, TriangleIsHitFromBothSidesWithItsBorder) {
    const V a(0, 0, 0), b(2, 0, 0), c(0, 2, 0);
    double t = -1;
    EXPECT_TRUE(Intersector::intersectTriangle(V(0.5, 0.5, 4), V(0, 0, -2), a, b, c, t));
    EXPECT_DOUBLE_EQ(t, 2.0);
    EXPECT_TRUE(Intersector::intersectTriangle(V(0.5, 0.5, -4), V(0, 0, 1), a, b, c, t));
    EXPECT_DOUBLE_EQ(t, 4.0);
    EXPECT_TRUE(Intersector::intersectTriangle(V(0, 0, 1), V(0, 0, -1), a, b, c, t));
    EXPECT_TRUE(Intersector::intersectTriangle(V(1, 1, 1), V(0, 0, -1), a, b, c, t));
    EXPECT_TRUE(Intersector::intersectTriangle(V(0.5, 0.5, 0), V(0, 0, -1), a, b, c, t));
    EXPECT_DOUBLE_EQ(t, 0.0);
    EXPECT_FALSE(Intersector::intersectTriangle(V(1.01, 1.01, 1), V(0, 0, -1), a, b, c, t));
    EXPECT_FALSE(Intersector::intersectTriangle(V(0.5, 0.5, 1), V(0, 0, 1), a, b, c, t));
    EXPECT_FALSE(Intersector::intersectTriangle(V(0.5, 0.5, 1), V(1, 0, 0), a, b, c, t));
    EXPECT_FALSE(Intersector::intersectTriangle(V(0.5, 0, 1), V(0, 0, -1), a, b, b, t));
    EXPECT_FALSE(Intersector::intersectTriangle(V(0.5, 0.5, 1), V(0, 0, -1), a, b, V(0, NAN, 0), t));
}

TEST(RayIntersector, RaysThroughAFanOfTrianglesNeverSlipThrough) {
    const unsigned seed = 99;
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(-1, 1);
    const SO<Array<V>> vertices(new Array<V>());
    vertices->append(V(0.1, 0.05, 0));
    for (unsigned i = 0; i <= 16; ++i)
        vertices->append(V(2 * std::cos(i * M_PI / 8), 2 * std::sin(i * M_PI / 8), 0));
    const SO<SceneThing> scene(new SceneThing());
    scene->append(new PolygonSet(PolygonSet::PT_TriangleFan, vertices));
    const SO<Engine> engine(new Engine());
    for (unsigned n = 0; n < 2000; ++n) {
        // Half of the rays aim at points on the edges between two triangles.
        V target(unit(random), unit(random), 0);
        if (n % 2)
            target = V(0.1, 0.05, 0) + (vertices->get(1 + n % 16) - V(0.1, 0.05, 0)) * std::abs(target.x);
        const V from(unit(random) * 5, unit(random) * 5, 3 + unit(random));
        const SO<RayTracingTechnique> ray(new RayTracingTechnique(Ray(from, target - from)));
        ASSERT_TRUE(ray->trace(engine.get(), scene.get())) << n << ", seed " << seed;
        ASSERT_NEAR((ray->nearestHit().point - target).length(), 0.0, 1e-9);
    }
}

} // namespace
