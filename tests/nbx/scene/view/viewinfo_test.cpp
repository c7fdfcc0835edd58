#include <nbx/scene/view/viewinfo.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <nbx/object/so.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>

namespace {

using namespace NBX;
using V = Vector3Base<double>;
using M = Matrix4x4Base<double>;

SO<ViewInfo> view(const M & modelView, const M & projection, unsigned width = 800, unsigned height = 600) {
    return new ViewInfo(modelView, projection, Area(0, 0, width, height));
}

/// The cube from -1 to 1 is the view volume.
SO<ViewInfo> unitView() {
    return view(M(), Ortho(-1, 1, -1, 1, -1, 1).matrix(1));
}

M perspective(double fieldOfView = 60, double nearDistance = 1, double farDistance = 1000,
              double aspect = 800.0 / 600) {
    const SO<Perspective> projection(new Perspective(fieldOfView, nearDistance, farDistance));
    return projection->matrix(aspect);
}

/// Signed room that a point has within the view volume: above 0 strictly inside.
double roomInView(const M & modelView, const M & projection, const V & p) {
    const V e = modelView * p;
    double clip[4];
    for (unsigned row = 0; row < 4; ++row)
        clip[row] = projection(row, 0) * e.x + projection(row, 1) * e.y + projection(row, 2) * e.z +
                    projection(row, 3);
    double room = 1e300;
    for (unsigned axis = 0; axis < 3; ++axis)
        room = std::min({room, clip[3] - clip[axis], clip[3] + clip[axis]});
    return room;
}

TEST(ViewInfo, EyeOfAPerspectiveView) {
    const SO<LookAt> eye(new LookAt(V(10, 20, 30), V(10, 20, 0)));
    const auto info = view(eye->matrix(), perspective(60, 2.5));
    EXPECT_NEAR((info->position() - V(10, 20, 30)).length(), 0.0, 1e-12);
    EXPECT_NEAR((info->direction() - V(0, 0, -1)).length(), 0.0, 1e-12);
    EXPECT_NEAR(info->nearDistance(), 2.5, 1e-12);
}

TEST(ViewInfo, NearPlaneOfAParallelViewLiesWhereItWasPut) {
    const SO<LookAt> eye(new LookAt(V(0, 100, 0), V(), V(0, 0, 1)));
    const SO<Ortho> box(new Ortho(-5, 5, -5, 5, 10, 200));
    const auto info = view(eye->matrix(), box->matrix(1));
    EXPECT_NEAR((info->position() + info->direction() * info->nearDistance() - V(0, 90, 0)).length(), 0.0,
                1e-9);
    const SO<Ortho> around(new Ortho(-5, 5, -5, 5, -10, 200));
    EXPECT_NEAR(view(eye->matrix(), around->matrix(1))->nearDistance(), -10.0, 1e-9);
}

TEST(ViewInfo, IsAskedInModelSpace) {
    // The model is enlarged by 10 and moved, so the eye at the origin stands at -1/10 of the offset.
    const M model = M::translation(V(0, 0, -50)) * M::scaling(V(10, 10, 10));
    const auto info = view(model, perspective(90, 1));
    EXPECT_NEAR((info->position() - V(0, 0, 5)).length(), 0.0, 1e-12);
    EXPECT_NEAR(info->direction().length(), 1.0, 1e-12);
    EXPECT_NEAR(info->nearDistance(), 0.1, 1e-12);
}

TEST(ViewInfo, UndefinedBoxIsOutside) {
    EXPECT_EQ(unitView()->cull(Bounds()), -1);
}

TEST(ViewInfo, CullsExactlyAtTheBorders) {
    const auto info = unitView();
    const double just = 1e-9;
    struct Row {
        const char * name;
        V llf, urb;
        int expected;
    };
    const Row rows[] = {
        {"a point in the middle", {0, 0, 0}, {0, 0, 0}, 1},
        {"well inside", {-0.5, -0.5, -0.5}, {0.5, 0.5, 0.5}, 1},
        {"just inside", {-1 + just, -1 + just, -1 + just}, {1 - just, 1 - just, 1 - just}, 1},
        {"touches from inside", {0, 0, 0}, {1, 0.5, 0.5}, 0},
        {"fills the volume", {-1, -1, -1}, {1, 1, 1}, 0},
        {"straddles", {0.5, 0, 0}, {1.5, 0.5, 0.5}, 0},
        {"holds the volume", {-5, -5, -5}, {5, 5, 5}, 0},
        {"touches from outside", {1, -0.5, -0.5}, {2, 0.5, 0.5}, 0},
        {"touches a corner from outside", {1, 1, 1}, {2, 2, 2}, 0},
        {"just outside at +x", {1 + just, -0.5, -0.5}, {2, 0.5, 0.5}, -1},
        {"just outside at -x", {-2, -0.5, -0.5}, {-1 - just, 0.5, 0.5}, -1},
        {"just outside at +y", {-0.5, 1 + just, -0.5}, {0.5, 2, 0.5}, -1},
        {"just outside at -y", {-0.5, -2, -0.5}, {0.5, -1 - just, 0.5}, -1},
        {"just outside at +z", {-0.5, -0.5, 1 + just}, {0.5, 0.5, 2}, -1},
        {"just outside at -z", {-0.5, -0.5, -2}, {0.5, 0.5, -1 - just}, -1},
        {"unbounded in height", {-0.5, -1e42, -0.5}, {0.5, 1e42, 0.5}, 0},
        {"unbounded in height, outside", {2, -1e42, -0.5}, {3, 1e42, 0.5}, -1},
    };
    for (const Row & row : rows)
        EXPECT_EQ(info->cull(Bounds(row.llf, row.urb)), row.expected) << row.name;
}

TEST(ViewInfo, WhatLiesBehindTheEyeIsOutside) {
    const auto info = view(M(), perspective());
    EXPECT_EQ(info->cull(Bounds(V(-1, -1, 2), V(1, 1, 4))), -1);
    EXPECT_EQ(info->cull(Bounds(V(-2, -2, -4), V(2, 2, -2))), 0);
    EXPECT_EQ(info->cull(Bounds(V(-0.1, -0.1, -4), V(0.1, 0.1, -2))), 1);
}

TEST(ViewInfo, LargeBoxBesideTheVolumeIsDropped) {
    // No plane of the volume has the box entirely behind it: it reaches beyond all of them near a corner.
    const auto info = view(M(), perspective(60, 1, 10, 1));
    const Bounds beside(V(6.5, -1000, -1000), V(1000, 1000, 1000));
    EXPECT_EQ(info->cull(beside), -1);
}

TEST(ViewInfo, InfiniteFarPlaneCulls) {
    M endless = perspective(90, 1, 1000, 1);
    endless(2, 2) = -1;
    endless(2, 3) = -2;
    const auto info = view(M(), endless);
    EXPECT_EQ(info->cull(Bounds(V(-1, -1, -1e12), V(1, 1, -1e11))), 1);
    EXPECT_EQ(info->cull(Bounds(V(-1, -1, 1), V(1, 1, 2))), -1);
    EXPECT_NEAR(info->nearDistance(), 1.0, 1e-9);
}

TEST(ViewInfo, CulledBoxesHaveNoVisiblePointAndKeptOnesNoHiddenPoint) {
    const unsigned seed = 20240611;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(-1, 1), share(0, 1);
    const auto vector = [&](double size) { return V(unit(random), unit(random), unit(random)) * size; };
    unsigned culled = 0, inside = 0;
    for (unsigned n = 0; n < 4000; ++n) {
        const double world = std::pow(10.0, 3.0 * unit(random));
        const SO<LookAt> eye(new LookAt(vector(world), vector(world), vector(1)));
        const M projection = n % 3 == 0
                                 ? Ortho(-world, world, -world, world, 0.1 * world, 4 * world).matrix(1)
                                 : perspective(20 + 100 * share(random), 0.01 * world, 10 * world);
        const M modelView = eye->matrix() * M::translation(vector(world)) * M::scaling(V(2, 1, 0.5));
        const auto info = view(modelView, projection);
        const V corner = vector(3 * world);
        const Bounds box(corner, corner + vector(world * std::pow(10.0, 2 * unit(random))));
        const int result = info->cull(box);
        culled += result == -1;
        inside += result == 1;
        for (unsigned sample = 0; sample < 60; ++sample) {
            const V p = box.point(share(random), share(random), share(random));
            const double room = roomInView(modelView, projection, p);
            if (result == -1) {
                ASSERT_LE(room, 1e-9 * world) << n;
            }
            if (result == 1) {
                ASSERT_GE(room, -1e-9 * world) << n;
            }
        }
    }
    EXPECT_GT(culled, 500U);
    EXPECT_GT(inside, 20U);
}

TEST(ViewInfo, ScreenDistanceEqualsThatOfTheProjectedPoints) {
    const unsigned seed = 7;
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(-1, 1);
    const double fieldOfView = 50.0, width = 1024, height = 512;
    const M projection = perspective(fieldOfView, 0.5, 1e5, width / height);
    const auto info = view(M::translation(V(0, 0, -100)), projection, 1024, 512);
    const double focalPixels = height / 2 / std::tan(fieldOfView / 2 * M_PI / 180);
    for (unsigned n = 0; n < 1000; ++n) {
        const V a(unit(random) * 50, unit(random) * 50, unit(random) * 90);
        const V b(unit(random) * 50, unit(random) * 50, unit(random) * 90);
        const double dx = focalPixels * (a.x / (100 - a.z) - b.x / (100 - b.z));
        const double dy = focalPixels * (a.y / (100 - a.z) - b.y / (100 - b.z));
        const double expected = dx * dx + dy * dy;
        ASSERT_NEAR(info->screenDistance2(a, b), expected, 1e-9 * (1 + expected));
    }
}

TEST(ViewInfo, ScreenDistanceOfAParallelViewIsTheSameAtAllDepths) {
    const auto info = view(M(), Ortho(-10, 10, -10, 10, 1, 100).matrix(1), 200, 100);
    EXPECT_DOUBLE_EQ(info->screenDistance2(V(0, 0, -5), V(1, 0, -5)), 100.0);
    EXPECT_DOUBLE_EQ(info->screenDistance2(V(0, 0, -50), V(0, 1, -50)), 25.0);
    EXPECT_DOUBLE_EQ(info->screenDistance2(V(0, 0, 50), V(0, 1, 50)), 25.0);
}

TEST(ViewInfo, ErrorsBehindTheEyeCountAsOnTheNearPlane) {
    const auto info = view(M(), perspective(90, 2, 1000, 1), 100, 100);
    const double onNearPlane = info->screenDistance2(V(0, -0.5, -2), V(0, 0.5, -2));
    EXPECT_NEAR(onNearPlane, 25.0 * 25.0, 1e-6);
    for (const double z : {-1.0, 0.0, 1.0, 2.0, 1e6})
        EXPECT_DOUBLE_EQ(info->screenDistance2(V(0, -0.5, z), V(0, 0.5, z)), onNearPlane) << z;
    EXPECT_GT(info->screenDistance2(V(0, 0, -3), V(0, 1, 5)), 0.0);
}

TEST(ViewInfo, TenThousandPatchesTakeMilliseconds) {
    const auto info = view(LookAt(V(0, 50, 0), V(1000, 0, 1000)).matrix(), perspective(60, 1, 20000));
    double sum = 0;
    const auto before = std::chrono::steady_clock::now();
    for (unsigned i = 0; i < 10000; ++i) {
        const V corner((i % 100) * 100.0 - 5000, 0, (i / 100) * 100.0 - 5000);
        const Bounds box(corner, corner + V(100, 50, 100));
        sum += info->cull(box) + info->screenDistance2(corner, corner + V(0, 1, 0));
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - before;
    EXPECT_TRUE(std::isfinite(sum));
    // Measured below 2 ms; the limit leaves room for sanitizers and a busy machine.
    EXPECT_LT(seconds.count(), 0.1);
    RecordProperty("microseconds", static_cast<int>(seconds.count() * 1e6));
}

TEST(ViewInfo, DistanceToABoxIsThatOfItsNearestPoint) {
    const SO<LookAt> eye(new LookAt(V(10, 20, 30), V(10, 20, 0)));
    const auto info = view(eye->matrix(), perspective());
    const Bounds box(V(12, 17, 30), V(14, 18, 31));
    EXPECT_NEAR(info->distance2(box), 4.0 + 4.0, 1e-9);
    EXPECT_NEAR(info->distance2(Bounds(V(0, 20, -70), V(20, 20, -60))), 90.0 * 90.0, 1e-9);
    EXPECT_NEAR(info->distance2(Bounds(V(11, 21, 31))), 3.0, 1e-9);
}

TEST(ViewInfo, ABoxAroundTheEyeIsAtNoDistance) {
    const SO<LookAt> eye(new LookAt(V(10, 20, 30), V(10, 20, 0)));
    const auto info = view(eye->matrix(), perspective());
    EXPECT_EQ(info->distance2(Bounds(V(0, 0, 0), V(100, 100, 100))), 0.0);
    EXPECT_EQ(info->distance2(Bounds(V(-1e9, -1e9, -1e9), V(1e9, 1e9, 1e9))), 0.0);
}

TEST(ViewInfo, AnUndefinedBoxIsInfinitelyFarAway) {
    EXPECT_EQ(unitView()->distance2(Bounds()), std::numeric_limits<double>::infinity());
}

TEST(ViewInfo, DistanceIsMeasuredInModelSpace) {
    const auto info = view(M::translation(V(0, 0, -50)) * M::scaling(V(10, 10, 10)), perspective(90, 1));
    EXPECT_NEAR(info->distance2(Bounds(V(0, 0, 0), V(1, 1, 1))), 16.0, 1e-9);
}

} // namespace
