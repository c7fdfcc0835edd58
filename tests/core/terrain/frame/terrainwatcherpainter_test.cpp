#include <zmt/core/terrain/frame/terrainwatcherpainter.h>

#include <support/glfixture.h>

#include <nbx/engine/painter.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/perspective.h>
#include <nbx/scene/view/translation.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/frame/terrainwatcher.h>

using ZMT::CORE::TerrainScaling;
using ZMT::CORE::TerrainWatcher;
using ZMT::CORE::TerrainWatcherPainter;

namespace {

using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

void expectNear(const Matrix & a, const Matrix & b) {
    for (unsigned i = 0; i < 16; ++i)
        EXPECT_NEAR(a.rows()[i], b.rows()[i], 1e-9) << "entry " << i;
}

/// The watcher stands in a node of its own, behind a translation and a scaling.
class TerrainWatcherPainterTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        root->append(camera.get());
        root->append(place.get());
        place->append(new NBX::Translation({0, -5, 0}));
        place->append(new TerrainScaling({1, 2, 1}));
        place->append(watcher.get());
        place->append(new NBX::Box);
    }

    const NBX::SO<NBX::LookAt> eye{new NBX::LookAt({3, 10, -20}, {})};
    const NBX::SO<NBX::Camera> camera{new NBX::Camera(eye.get(), new NBX::Perspective(50.0, 1.0, 300.0))};
    const NBX::SO<NBX::SceneThing> place{new NBX::SceneThing};
    const NBX::SO<TerrainWatcher> watcher{new TerrainWatcher};
    const Matrix model = Matrix::translation({0, -5, 0}) * Matrix::scaling({1, 2, 1});
};

TEST_F(TerrainWatcherPainterTest, IsThePainterOfWatchers) {
    EXPECT_EQ(TerrainWatcherPainter().target(), TerrainWatcher::ClassNameNBX());
    EXPECT_TRUE(dynamic_cast<TerrainWatcherPainter *>(
        engine->findHandler(NBX::Painter::ClassNameNBX(), TerrainWatcher::ClassInfoNBX())));
    const NBX::SO<TerrainScaling> other(new TerrainScaling({1, 1, 1}));
    EXPECT_FALSE(TerrainWatcherPainter().apply(engine.get(), other.get(), true));
}

TEST_F(TerrainWatcherPainterTest, KeepsTheViewOfTheFrame) {
    draw();
    expectNear(watcher->orientation(), eye->matrix());
    expectNear(watcher->modelview(), eye->matrix() * model);
    expectNear(watcher->projection(), camera->projectionMatrix(64, 64));
    expectNear(watcher->inverseOrientation() * watcher->orientation(), Matrix());
    expectNear(watcher->inverseModelview() * watcher->modelview(), Matrix());
    expectNear(watcher->inverseProjection() * watcher->projection(), Matrix());
    ASSERT_TRUE(watcher->viewinfo());
    EXPECT_EQ(watcher->viewinfo()->viewport(), NBX::Area(0, 0, 64, 64));
    expectNear(watcher->viewinfo()->modelView(), watcher->modelview());
    EXPECT_LT((watcher->viewinfo()->position() - Point(3, 7.5, -20)).length(), 1e-9)
        << "in the frame of the terrain";
}

TEST_F(TerrainWatcherPainterTest, AFrozenWatcherKeepsItsView) {
    draw();
    const Matrix seen = watcher->modelview(), seenOrientation = watcher->orientation(),
                 seenProjection = watcher->projection();
    const auto viewInfo = watcher->viewinfo();
    watcher->setFreeze(true);
    eye->setFrom({-8, 30, 4});
    camera->setProjection(new NBX::Perspective(20.0, 2.0, 90.0));
    draw();
    EXPECT_EQ(watcher->modelview(), seen);
    EXPECT_EQ(watcher->inverseModelview(), seen.inverse());
    EXPECT_EQ(watcher->orientation(), seenOrientation);
    EXPECT_EQ(watcher->inverseOrientation(), seenOrientation.inverse());
    EXPECT_EQ(watcher->projection(), seenProjection);
    EXPECT_EQ(watcher->inverseProjection(), seenProjection.inverse());
    EXPECT_EQ(watcher->viewinfo(), viewInfo);

    watcher->setFreeze(false);
    draw();
    expectNear(watcher->orientation(), eye->matrix());
    expectNear(watcher->projection(), camera->projectionMatrix(64, 64));
    EXPECT_NE(watcher->viewinfo(), viewInfo);
}

/// Leaving it behind changes nothing: the matrices of what comes later are not the terrain's.
TEST_F(TerrainWatcherPainterTest, ReadsOnEnteringAlone) {
    engine->pushModelMatrix(model);
    EXPECT_TRUE(TerrainWatcherPainter().apply(engine.get(), watcher.get(), false));
    EXPECT_EQ(watcher->modelview(), Matrix());
    EXPECT_FALSE(watcher->viewinfo());
    EXPECT_TRUE(TerrainWatcherPainter().apply(engine.get(), watcher.get(), true));
    EXPECT_EQ(watcher->modelview(), model);
    engine->popModelMatrix();
}

/// What stands behind the inner watcher lies elsewhere, and the outer one has not seen it.
TEST_F(TerrainWatcherPainterTest, EachOfNestedWatchersKeepsTheViewOfItsOwnTerrain) {
    const NBX::SO<TerrainWatcher> inner(new TerrainWatcher), innermost(new TerrainWatcher);
    NBX::SceneThing * below = place.get();
    for (const auto & nested : {inner, innermost}) {
        below = new NBX::SceneThing(below);
        below->append(new NBX::Translation({7, 0, 0}));
        below->append(nested.get());
        below->append(new NBX::Box);
    }
    for (const Point & from : {Point(3, 10, -20), Point(-8, 30, 4)}) {
        eye->setFrom(from);
        draw();
        expectNear(watcher->modelview(), eye->matrix() * model);
        expectNear(watcher->viewinfo()->modelView(), watcher->modelview());
        expectNear(inner->modelview(), eye->matrix() * model * Matrix::translation({7, 0, 0}));
        expectNear(innermost->modelview(), eye->matrix() * model * Matrix::translation({14, 0, 0}));
    }
}

TEST_F(TerrainWatcherPainterTest, AWatcherInTwoPlacesSeesTheLast) {
    auto * below = new NBX::SceneThing(place.get());
    below->append(new NBX::Translation({7, 0, 0}));
    below->append(watcher.get());
    below->append(new NBX::Box);
    for (const Point & from : {Point(3, 10, -20), Point(-8, 30, 4)}) {
        eye->setFrom(from);
        draw();
        expectNear(watcher->modelview(), eye->matrix() * model * Matrix::translation({7, 0, 0}));
    }
}

TEST_F(TerrainWatcherPainterTest, DisregardedWatchersSeeNothing) {
    const NBX::SO<TerrainWatcher> inner(new TerrainWatcher);
    const NBX::AttributeScope outerScope(engine.get(), watcher.get());
    engine->disregard(TerrainWatcher::ClassNameNBX());
    engine->push(inner.get());
    EXPECT_FALSE(inner->viewinfo());
    engine->pop(inner.get());
    engine->regard(TerrainWatcher::ClassNameNBX());
    engine->pushModelMatrix(model);
    {
        const NBX::AttributeScope innerScope(engine.get(), inner.get());
        EXPECT_EQ(inner->modelview(), model);
    }
    EXPECT_EQ(watcher->modelview(), Matrix());
    engine->popModelMatrix();
}

} // namespace
