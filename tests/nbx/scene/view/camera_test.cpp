#include <nbx/scene/view/camera.h>

#include <cmath>

#include <gtest/gtest.h>

#include <nbx/math/ray.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <support/recordedreports.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;

TEST(LookAt, bringsTheWorldBeforeTheEye) {
    const SO<LookAt> eye(new LookAt(V(1, 2, 3), V(1, 2, -7)));
    const auto m = eye->matrix();
    EXPECT_EQ(m * V(1, 2, 3), V());
    EXPECT_EQ(m * V(1, 2, -7), V(0, 0, -10));
    // The world is left-handed: looking along -z, x grows to the left.
    EXPECT_EQ(m * V(2, 3, 3), V(-1, 1, 0));
}

TEST(LookAt, looksStraightDown) {
    // The map view: x to the right when z shows upwards.
    const SO<LookAt> eye(new LookAt(V(0, 100, 0), V(), V(0, 0, 1)));
    const auto m = eye->matrix();
    EXPECT_NEAR((m * V(0, 0, 5) - V(0, 5, -100)).length(), 0.0, 1e-12);
    EXPECT_NEAR((m * V(5, 0, 0) - V(5, 0, -100)).length(), 0.0, 1e-12);
}

TEST(LookAt, degenerateViewsStillGiveARigidMatrix) {
    const LookAt * const eyes[] = {new LookAt(V(), V(0, -5, 0), V(0, 1, 0)),
                                   new LookAt(V(1, 1, 1), V(1, 1, 1)), new LookAt(V(), V(0, 0, -1), V())};
    for (const LookAt * eye : eyes) {
        const SO<const LookAt> held(eye);
        const auto m = eye->matrix();
        const auto product = m * m.inverse();
        for (unsigned i = 0; i < 16; ++i)
            EXPECT_NEAR(product.rows()[i], i % 5 == 0 ? 1.0 : 0.0, 1e-12);
        EXPECT_NEAR(m.transformDirection(V(1, 2, 3)).length(), std::sqrt(14.0), 1e-12);
    }
}

TEST(Ortho, bringsItsBoxToTheUnitCube) {
    const SO<Ortho> ortho(new Ortho(-2, 6, 1, 5, 10, 30));
    const auto m = ortho->matrix(3.0);
    EXPECT_NEAR((m * V(-2, 1, -10) - V(-1, -1, -1)).length(), 0.0, 1e-12);
    EXPECT_NEAR((m * V(6, 5, -30) - V(1, 1, 1)).length(), 0.0, 1e-12);
}

TEST(Ortho, boxWithoutVolumeIsReported) {
    RecordedReports reports;
    const SO<Ortho> ortho(new Ortho(1, 1, 0, 1, 0, 1));
    EXPECT_EQ(reports.count(L"projection without volume"), 1U);
    const auto m = ortho->matrix(1);
    for (const double entry : m.rows())
        EXPECT_TRUE(std::isfinite(entry));
}

TEST(Perspective, bringsItsBordersToTheUnitCube) {
    const SO<Perspective> projection(new Perspective(90, 2, 50));
    const auto m = projection->matrix(2.0);
    EXPECT_NEAR((m * V(-4, -2, -2) - V(-1, -1, -1)).length(), 0.0, 1e-12);
    EXPECT_NEAR((m * V(100, 50, -50) - V(1, 1, 1)).length(), 0.0, 1e-12);
}

TEST(Perspective, badValuesAreReportedAndDoNoHarm) {
    RecordedReports reports;
    const SO<Perspective> projection(new Perspective(180, 0, -1));
    EXPECT_EQ(reports.size(), 2U) << reports;
    const auto m = projection->matrix(0);
    for (const double entry : m.rows())
        EXPECT_TRUE(std::isfinite(entry));
}

TEST(Camera, sizePolicyDecidesWhatTheViewportsAspectDoes) {
    const SO<Perspective> projection(new Perspective(60, 1, 10));
    const SO<Camera> fills(new Camera(new LookAt(), projection.get()));
    const SO<Camera> keeps(
        new Camera(new LookAt(), projection.get(), Camera::S_Global, Camera::SP_KeepAspect));
    EXPECT_EQ(fills->projectionMatrix(200, 100), projection->matrix(2.0));
    EXPECT_EQ(keeps->projectionMatrix(200, 100), projection->matrix(1.0));
    EXPECT_EQ(fills->projectionMatrix(200, 0), projection->matrix(1.0));
}

TEST(Camera, raysRunThroughPlacesOfThePicture) {
    const SO<LookAt> eye(new LookAt(V(5e5, 200, -4e6), V(5e5 + 300, -50, -4e6 + 900)));
    const SO<Camera> cameras[] = {
        new Camera(eye.get(), new Perspective(60, 2, 1000)),
        new Camera(eye.get(), new Ortho(-20, 60, -10, 50, 3, 100)),
        new Camera(eye.get(), new Perspective(30, 0.5, 20), Camera::S_Local, Camera::SP_KeepAspect)};
    constexpr unsigned width = 320, height = 200;
    for (const SO<Camera> & camera : cameras) {
        const auto toView = camera->viewMatrix(), toCube = camera->projectionMatrix(width, height);
        for (const auto & [x, y] : {std::pair(0.0, 0.0), {320.0, 200.0}, {160.5, 99.5}, {12.25, 180.75}}) {
            const Ray ray = camera->rayThrough(x, y, width, height);
            for (const double t : {0.0, 0.5, 1.0}) {
                const V place = toCube * (toView * ray.point(t));
                EXPECT_NEAR((place.x + 1.0) * width / 2.0, x, 1e-4);
                EXPECT_NEAR((place.y + 1.0) * height / 2.0, y, 1e-4);
                if (t == 0.0 || t == 1.0) {
                    EXPECT_NEAR(place.z, 2.0 * t - 1.0, 1e-6);
                }
            }
        }
    }
}

TEST(Camera, missingPartsAreReportedAndReplaced) {
    RecordedReports reports;
    const SO<Camera> camera(new Camera(nullptr, nullptr));
    EXPECT_EQ(reports.count(0, L"eye", L"no eye"), 1U);
    EXPECT_EQ(reports.count(0, L"projection", L"no projection"), 1U);
    EXPECT_TRUE(camera->getLookAt());
    EXPECT_TRUE(camera->getProjection());
}

TEST(Camera, storedAndReadIsTheSame) {
    const SO<Camera> camera(new Camera(new LookAt(V(1, 2, 3), V(4, 5, 6), V(0, 0, 1)),
                                       new Ortho(-2, 6, 1, 5, 10, 30), Camera::S_Global,
                                       Camera::SP_KeepAspect));
    const SO<Camera> copy = storedCopy(*camera);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->viewMatrix(), camera->viewMatrix());
    EXPECT_EQ(copy->projectionMatrix(3, 2), camera->projectionMatrix(3, 2));
    EXPECT_EQ(copy->getScope(), Camera::S_Global);
    EXPECT_EQ(copy->getSizePolicy(), Camera::SP_KeepAspect);
    const SO<Camera> other(new Camera(new LookAt(), new Perspective(33, 2, 44)));
    EXPECT_EQ(storedCopy(*other)->projectionMatrix(3, 2), other->projectionMatrix(3, 2));
}

} // namespace
