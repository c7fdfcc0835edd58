#include <nbx/scene/view/camera.h>

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include <nbx/math/ray.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <nbx/scene/view/pixelprojection.h>
#include <nbx/scene/view/shiftedprojection.h>
#include <support/recordedreports.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;

TEST(LookAt, BringsTheWorldBeforeTheEye) {
    const SO<LookAt> eye(new LookAt(V(1, 2, 3), V(1, 2, -7)));
    const auto m = eye->matrix();
    EXPECT_EQ(m * V(1, 2, 3), V());
    EXPECT_EQ(m * V(1, 2, -7), V(0, 0, -10));
    // The world is left-handed: looking along -z, x grows to the left.
    EXPECT_EQ(m * V(2, 3, 3), V(-1, 1, 0));
}

TEST(LookAt, LooksStraightDown) {
    // The map view: x to the right when z shows upwards.
    const SO<LookAt> eye(new LookAt(V(0, 100, 0), V(), V(0, 0, 1)));
    const auto m = eye->matrix();
    EXPECT_NEAR((m * V(0, 0, 5) - V(0, 5, -100)).length(), 0.0, 1e-12);
    EXPECT_NEAR((m * V(5, 0, 0) - V(5, 0, -100)).length(), 0.0, 1e-12);
}

TEST(LookAt, DegenerateViewsStillGiveARigidMatrix) {
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

TEST(Ortho, BringsItsBoxToTheUnitCube) {
    const SO<Ortho> ortho(new Ortho(-2, 6, 1, 5, 10, 30));
    const auto m = ortho->matrix(3.0);
    EXPECT_NEAR((m * V(-2, 1, -10) - V(-1, -1, -1)).length(), 0.0, 1e-12);
    EXPECT_NEAR((m * V(6, 5, -30) - V(1, 1, 1)).length(), 0.0, 1e-12);
}

TEST(Ortho, BoxWithoutVolumeIsReported) {
    RecordedReports reports;
    const SO<Ortho> ortho(new Ortho(1, 1, 0, 1, 0, 1));
    EXPECT_EQ(reports.count(L"projection without volume"), 1U);
    const auto m = ortho->matrix(1);
    for (const double entry : m.rows())
        EXPECT_TRUE(std::isfinite(entry));
}

TEST(Perspective, BringsItsBordersToTheUnitCube) {
    const SO<Perspective> projection(new Perspective(90, 2, 50));
    const auto m = projection->matrix(2.0);
    EXPECT_NEAR((m * V(-4, -2, -2) - V(-1, -1, -1)).length(), 0.0, 1e-12);
    EXPECT_NEAR((m * V(100, 50, -50) - V(1, 1, 1)).length(), 0.0, 1e-12);
}

TEST(Perspective, BadValuesAreReportedAndDoNoHarm) {
    RecordedReports reports;
    const SO<Perspective> projection(new Perspective(180, 0, -1));
    EXPECT_EQ(reports.size(), 2U) << reports;
    const auto m = projection->matrix(0);
    for (const double entry : m.rows())
        EXPECT_TRUE(std::isfinite(entry));
}

TEST(ShiftedProjection, MovesWhatIsSeenByPartsOfPixels) {
    const SO<Perspective> projection(new Perspective(90, 2, 50));
    const SO<ShiftedProjection> shifted(new ShiftedProjection(projection.get(), 0.25, -0.5));
    EXPECT_EQ(shifted->matrix(2.0), projection->matrix(2.0));
    const auto before = projection->matrixInViewport(80, 40), behind = shifted->matrixInViewport(80, 40);
    for (const V & place : {V(-4, -2, -2), V(1, 2, -5), V(0, 0, -49)})
        EXPECT_NEAR((behind * place - before * place - V(2 * 0.25 / 80, -2 * 0.5 / 40, 0)).length(), 0.0,
                    1e-12);
}

TEST(ShiftedProjection, NeedsAProjection) {
    RecordedReports reports;
    const SO<ShiftedProjection> shifted(new ShiftedProjection(nullptr, 0.0, 0.0));
    EXPECT_EQ(reports.count(L"no projection"), 1U);
    EXPECT_EQ(shifted->matrix(1.0), SO<Perspective>(new Perspective)->matrix(1.0));
}

TEST(Camera, SizePolicyDecidesWhatTheViewportsAspectDoes) {
    const SO<Perspective> projection(new Perspective(60, 1, 10));
    const SO<Camera> fills(new Camera(new LookAt(), projection.get()));
    const SO<Camera> keeps(
        new Camera(new LookAt(), projection.get(), Camera::S_Global, Camera::SP_KeepAspect));
    EXPECT_EQ(fills->projectionMatrix(200, 100), projection->matrix(2.0));
    EXPECT_EQ(keeps->projectionMatrix(200, 100), projection->matrix(1.0));
    EXPECT_EQ(fills->projectionMatrix(200, 0), projection->matrix(1.0));
}

TEST(Camera, RaysRunThroughPlacesOfThePicture) {
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

TEST(Camera, MissingPartsAreReportedAndReplaced) {
    RecordedReports reports;
    const SO<Camera> camera(new Camera(nullptr, nullptr));
    EXPECT_EQ(reports.count(0, L"eye", L"no eye"), 1U);
    EXPECT_EQ(reports.count(0, L"projection", L"no projection"), 1U);
    EXPECT_TRUE(camera->getLookAt());
    EXPECT_TRUE(camera->getProjection());
}

TEST(Camera, StoredAndReadIsTheSame) {
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

/// Where a point lies in a picture of `width` by `height`, in pixels, with its depth from -1 (near) to 1.
V inPicture(const Camera & camera, const V & p, unsigned width, unsigned height) {
    const V q = camera.projectionMatrix(width, height) * (camera.viewMatrix() * p);
    return {(q.x + 1.0) / 2.0 * width, (q.y + 1.0) / 2.0 * height, q.z};
}

bool isFinite(const Matrix4x4Base<double> & m) {
    return std::all_of(m.rows().begin(), m.rows().end(), [](double entry) { return std::isfinite(entry); });
}

TEST(Camera, PixelCoordinatesAreThoseOfThePicture) {
    const SO<Camera> camera = Camera::newPixelCoordsCamera(-1, 100);
    EXPECT_EQ(camera->getScope(), Camera::S_Local);
    for (const auto & [width, height] : {std::pair(320U, 200U), {1U, 1U}, {17U, 8192U}})
        for (const V & p : {V(0, 0, -1), V(width, height, 100), V(0.5, height - 0.5, 0), V(-7, 3, 42)}) {
            const V seen = inPicture(*camera, p, width, height);
            EXPECT_NEAR(seen.x, p.x, 1e-9);
            EXPECT_NEAR(seen.y, p.y, 1e-9);
            EXPECT_NEAR(seen.z, (p.z + 1) / 101 * 2 - 1, 1e-12);
        }
}

TEST(Camera, NearMayLieBehindFar) {
    const SO<Camera> camera = Camera::newPixelCoordsCamera(100, -1);
    EXPECT_NEAR(inPicture(*camera, V(1, 2, 100), 10, 10).z, -1.0, 1e-12);
    EXPECT_NEAR(inPicture(*camera, V(1, 2, -1), 10, 10).z, 1.0, 1e-12);
    EXPECT_NEAR(inPicture(*camera, V(1, 2, 0), 10, 10).y, 2.0, 1e-12);
}

TEST(Camera, PixelCoordinatesWithoutAViewportStayFinite) {
    const SO<Camera> camera = Camera::newPixelCoordsCamera(-1, 1);
    for (const auto & [width, height] : {std::pair(0U, 0U), {5U, 0U}, {0U, 5U}})
        EXPECT_TRUE(isFinite(camera->projectionMatrix(width, height)));
    RecordedReports reports;
    const SO<Camera> flat = Camera::newPixelCoordsCamera(3, 3);
    EXPECT_EQ(reports.count(L"projection without volume"), 1U);
    EXPECT_TRUE(isFinite(flat->projectionMatrix(4, 4)));
}

TEST(Camera, ABoxFillsThePictureWhateverItsShape) {
    const SO<Camera> camera = Camera::newNormalizedDeviceCoordsCamera(0, 1, -2, 2, -0.1, 7.1);
    for (const auto & [width, height] : {std::pair(320U, 200U), {64U, 1024U}}) {
        const V low = inPicture(*camera, V(0, -2, -0.1), width, height);
        const V high = inPicture(*camera, V(1, 2, 7.1), width, height);
        EXPECT_NEAR((low - V(0, 0, -1)).length(), 0.0, 1e-9);
        EXPECT_NEAR((high - V(width, height, 1)).length(), 0.0, 1e-9);
        EXPECT_NEAR((inPicture(*camera, V(0.5, 0, 3.5), width, height) - V(width, height, 0) * 0.5).length(),
                    0.0, 1e-9);
    }
}

TEST(Camera, PixelCoordinatesAreStored) {
    const SO<Camera> camera = Camera::newPixelCoordsCamera(-3, 12);
    const SO<Camera> copy = storedCopy(*camera);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->projectionMatrix(30, 20), camera->projectionMatrix(30, 20));
    EXPECT_EQ(dynamic_cast<PixelProjection &>(*copy->getProjection()).getFar(), 12.0);
    EXPECT_EQ(dynamic_cast<PixelProjection &>(*copy->getProjection()).getNear(), -3.0);
}

} // namespace
