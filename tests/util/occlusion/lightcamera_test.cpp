#include "util/occlusion/lightcamera.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "support/recordedreports.h"

namespace {

using NBX::Bounds;
using ZMT::UTIL::LightCamera;
using V = NBX::Vector3Base<double>;

TEST(LightCamera, WhatIsLitFillsThePictureAndCastersLieInFrontOfIt) {
    std::mt19937 random(4);
    std::uniform_real_distribution<double> place(-50.0, 50.0), unit(0.0, 1.0);
    const auto point = [&] { return V(place(random), place(random), place(random)); };
    for (int i = 0; i < 500; ++i) {
        const Bounds lit(point(), point());
        Bounds casting = lit;
        casting += point() * 4.0;
        const V direction = point();
        const LightCamera camera(lit, casting, direction);
        Bounds seen;
        for (int k = 0; k < 8; ++k) {
            const V p = camera.projection() * (camera.view() * lit.point(k & 1, k >> 1 & 1, k >> 2));
            seen += p;
            // What lies nearer to the light has a smaller depth.
            const V nearer =
                camera.projection() *
                (camera.view() * (lit.point(k & 1, k >> 1 & 1, k >> 2) + direction.normalized()));
            EXPECT_NEAR(p.x, nearer.x, 1e-9);
            EXPECT_NEAR(p.y, nearer.y, 1e-9);
            EXPECT_LT(nearer.z, p.z);
        }
        EXPECT_NEAR(-1.0, seen.getLLF().x, 1e-9);
        EXPECT_NEAR(-1.0, seen.getLLF().y, 1e-9);
        EXPECT_NEAR(1.0, seen.getURB().x, 1e-9);
        EXPECT_NEAR(1.0, seen.getURB().y, 1e-9);
        const V caster =
            camera.projection() * (camera.view() * casting.point(unit(random), unit(random), unit(random)));
        EXPECT_LT(std::abs(caster.z), 1.0);
    }
}

TEST(LightCamera, ABoxWithoutExtentOrSeenEdgeOnHasAPicture) {
    const RecordedReports reports;
    for (const Bounds & lit : {Bounds(V(5, 5, 5)), Bounds(V(0, 0, 0), V(9, 0, 9))})
        for (const V & direction : {V(0, 1, 0), V(1, 0, 0), V(0, 0, -1)}) {
            const LightCamera camera(lit, Bounds(), direction);
            const V p = camera.projection() * (camera.view() * lit.center());
            EXPECT_NEAR(0.0, p.x, 1e-6);
            EXPECT_NEAR(0.0, p.y, 1e-6);
            EXPECT_NEAR(0.0, p.z, 1e-6);
        }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(LightCamera, HoldsForTheWholeCanvasAndFillsIt) {
    const LightCamera camera(Bounds(V(0, 0, 0), V(1, 1, 1)), Bounds(), V(0, 1, 0));
    EXPECT_EQ(NBX::Camera::S_Global, camera.camera()->getScope());
    EXPECT_EQ(NBX::Camera::SP_Fill, camera.camera()->getSizePolicy());
    // Four diagonals away.
    const double distance = (camera.camera()->getLookAt()->getFrom() - V(0.5, 0.5, 0.5)).length();
    EXPECT_NEAR(4.0 * std::sqrt(3.0), distance, 1e-9);
}

} // namespace
