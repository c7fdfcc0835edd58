#include "landscapeview.h"

#include <QApplication>
#include <QLabel>
#include <QRegularExpression>
#include <QWheelEvent>

#include <GL/gl.h>

#include <nbx/engine/clock.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/texture2dgl.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>

#include "support/zmtrun.h"
#include "viewertest.h"

namespace {

class LandscapeViewTest : public ViewerTest {
protected:
    void drag(Qt::MouseButton button, QPoint by) const {
        const QPoint from = middle() + QPoint(0, 60);
        QTest::mousePress(view, button, {}, from);
        for (int i = 1; i <= 4; ++i) {
            const QPoint at = from + by * i / 4;
            QMouseEvent move(QEvent::MouseMove, at, view->mapToGlobal(at), Qt::NoButton, button, {});
            QApplication::sendEvent(view, &move);
        }
        QTest::mouseRelease(view, button, {}, from + by);
    }
    void turnWheel(int eighthsOfADegree) const {
        const QPoint at = middle() + QPoint(30, 40);
        QWheelEvent event(at, view->mapToGlobal(at), {}, {0, eighthsOfADegree}, Qt::NoButton, {},
                          Qt::NoScrollPhase, false);
        QApplication::sendEvent(view, &event);
    }
    FlightController::Point eye() const { return view->flight().eye(); }
    double moved(const FlightController::Point & from) const { return (eye() - from).length(); }
};

TEST_F(LandscapeViewTest, EmptyWindowDrawsTheSkyAlone) {
    view->redraw();
    QTest::qWait(100);
    const auto sky = picture();
    ASSERT_TRUE(sky);
    EXPECT_EQ(0.0, difference(sky, sky));
    for (const int x : {0, sky->width() / 2, sky->width() - 1})
        EXPECT_NEAR(0.90, sky->getColor(x, sky->height() / 2)[2], 0.01);
    EXPECT_FALSE(view->isComplete());
    EXPECT_FALSE(view->groundAt(middle()));
    EXPECT_THROW(view->savePicture("/nowhere/at/all.png"), std::exception);
}

TEST_F(LandscapeViewTest, ShowsWhatWasLoaded) {
    load({s_everest});
    EXPECT_GT(view->frames().drawn.patches, 1U);
    EXPECT_GT(view->frames().drawn.triangles, 100U);
    const auto * overlay = view->findChild<QLabel *>("overlay");
    ASSERT_TRUE(overlay);
    EXPECT_TRUE(overlay->isVisible());
    EXPECT_TRUE(overlay->text().contains("patches"));
    EXPECT_TRUE(overlay->text().contains("complete"));
    EXPECT_FALSE(overlay->text().contains("pending")) << "there is no texture";
    const auto ground = view->groundAt(middle());
    ASSERT_TRUE(ground);
    EXPECT_GT(ground->y, 100.0);
    EXPECT_LT(ground->y, 9000.0);
}

TEST_F(LandscapeViewTest, ShowsHowManyTexturesWait) {
    load({s_everest, s_everestImage});
    const auto * overlay = view->findChild<QLabel *>("overlay");
    ASSERT_TRUE(overlay);
    const QRegularExpression figures("\\d+\\.\\d MiB textures, (\\d+) pending");
    const auto match = figures.match(overlay->text());
    ASSERT_TRUE(match.hasMatch()) << overlay->text().toStdString();
    EXPECT_EQ(match.captured(1), QString::number(ZMT::CORE::TiledLODTexture::pendingRequests()));
}

TEST_F(LandscapeViewTest, FillsTheWholeWidgetAlsoAfterAChangeOfSize) {
    load({s_everest});
    const double scale = view->devicePixelRatioF();
    for (const QSize size : {QSize(700, 480), QSize(500, 600), QSize(801, 333)}) {
        window->resize(size);
        QTest::qWait(50);
        ASSERT_TRUE(settle());
        const auto shown = picture();
        ASSERT_TRUE(shown);
        EXPECT_EQ(int(view->width() * scale), shown->width());
        EXPECT_EQ(int(view->height() * scale), shown->height());
    }
}

TEST_F(LandscapeViewTest, DoesNotDrawAtRest) {
    load({s_everest});
    // The window system may ask for some pictures when windows come and go.
    QTest::qWait(500);
    const unsigned frames = view->frames().count;
    QTest::qWait(500);
    EXPECT_EQ(frames, view->frames().count);
}

TEST_F(LandscapeViewTest, DrawsAgainWhenTheCanvasIsAskedForIt) {
    load({s_everest});
    const unsigned frames = view->frames().count;
    view->redraw();
    EXPECT_TRUE(QTest::qWaitFor([&] { return view->frames().count > frames; }));
    EXPECT_TRUE(settle());
}

TEST_F(LandscapeViewTest, KeepsItsPictureWhileRedisplayIsSwitchedOff) {
    load({s_everest});
    const auto before = picture();
    const unsigned frames = view->frames().count;
    view->canvas()->setRedisplayEnabled(false);
    view->setWireframe(true);
    view->update();
    QTest::qWait(200);
    EXPECT_EQ(0.0, difference(before, picture()));
    EXPECT_EQ(frames, view->frames().count);
    EXPECT_FALSE(view->isComplete());
    EXPECT_EQ(NBX::Clock::never(), NBX::Clock::systemClock()->nextTick());
    view->canvas()->setRedisplayEnabled(true);
    ASSERT_TRUE(settle());
    EXPECT_GT(difference(before, picture()), 0.1);
}

TEST_F(LandscapeViewTest, HiddenWindowLetsTheClockRest) {
    load({s_everest});
    window->hide();
    view->redraw();
    QTest::qWait(50);
    EXPECT_TRUE(view->canvas()->redisplayPending());
    EXPECT_EQ(NBX::Clock::never(), NBX::Clock::systemClock()->nextTick());
    window->show();
    EXPECT_TRUE(settle());
}

TEST_F(LandscapeViewTest, LeftDragTurnsRoundTheGround) {
    load({s_everest});
    const auto before = eye(), forward = view->flight().forward();
    const auto still = picture();
    drag(Qt::LeftButton, {120, 0});
    EXPECT_TRUE(view->isMoving());
    EXPECT_GT(moved(before), 1.0);
    EXPECT_LT(forward.dot(view->flight().forward()), 0.999);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(view->isMoving());
    EXPECT_GT(difference(still, picture()), 0.1);
}

TEST_F(LandscapeViewTest, RightAndMiddleDragShift) {
    load({s_everest});
    for (const Qt::MouseButton button : {Qt::RightButton, Qt::MiddleButton}) {
        const auto before = eye(), forward = view->flight().forward();
        drag(button, {60, 30});
        EXPECT_GT(moved(before), 1.0);
        EXPECT_NEAR(1.0, forward.dot(view->flight().forward()), 1e-12);
        EXPECT_NEAR(before.y, eye().y, 1e-6);
    }
}

TEST_F(LandscapeViewTest, WheelGoesNearerAndBack) {
    load({s_everest});
    const auto before = eye();
    turnWheel(240);
    EXPECT_LT(eye().y, before.y);
    EXPECT_TRUE(view->isMoving());
    turnWheel(-240);
    EXPECT_NEAR(0.0, moved(before), 1.0);
    turnWheel(0);
    EXPECT_TRUE(settle());
}

TEST_F(LandscapeViewTest, KeysFlyAsLongAsTheyAreHeld) {
    load({s_everest});
    for (const Qt::Key key : {Qt::Key_W, Qt::Key_A, Qt::Key_S, Qt::Key_D, Qt::Key_Q, Qt::Key_E}) {
        const auto before = eye();
        QTest::keyPress(view, key);
        EXPECT_TRUE(QTest::qWaitFor([&] { return moved(before) > 10.0; })) << char(key);
        QTest::keyRelease(view, key);
        const auto after = eye();
        QTest::qWait(60);
        EXPECT_EQ(0.0, moved(after)) << char(key);
    }
    EXPECT_TRUE(settle());
}

TEST_F(LandscapeViewTest, FlightEndsWhenTheKeyboardGoesElsewhere) {
    load({s_everest});
    QTest::keyPress(view, Qt::Key_W);
    QFocusEvent gone(QEvent::FocusOut);
    QApplication::sendEvent(view, &gone);
    const auto after = eye();
    QTest::qWait(60);
    EXPECT_EQ(0.0, moved(after));
    EXPECT_TRUE(settle());
}

TEST_F(LandscapeViewTest, NothingMovesWithoutALandscape) {
    const auto before = eye();
    drag(Qt::LeftButton, {50, 50});
    turnWheel(120);
    QTest::keyPress(view, Qt::Key_W);
    QTest::qWait(50);
    QTest::keyRelease(view, Qt::Key_W);
    view->resetView();
    view->setExaggeration(2.0);
    EXPECT_EQ(0.0, moved(before));
}

TEST_F(LandscapeViewTest, ResetGoesBackToTheStart) {
    load({s_everest});
    const auto still = picture();
    const auto before = eye();
    drag(Qt::LeftButton, {120, 40});
    turnWheel(240);
    view->resetView();
    ASSERT_TRUE(settle());
    EXPECT_EQ(0.0, moved(before));
    EXPECT_LT(difference(still, picture()), 1e-3);
}

TEST_F(LandscapeViewTest, ExaggerationLiftsTheGroundAndTheEye) {
    load({s_everest});
    const double top = view->landscape()->box().getURB().y;
    view->setExaggeration(3.0);
    EXPECT_GT(view->landscape()->box().getURB().y, 2.0 * top);
    view->resetView();
    EXPECT_TRUE(settle());
    const auto place = view->groundAt(middle());
    ASSERT_TRUE(place);
    EXPECT_LT(place->y, 9000.0) << "map heights are not exaggerated";
    for (int i = 0; i < 60; ++i)
        turnWheel(240);
    view->setExaggeration(15.0);
    const auto below = view->flight().pick({eye(), {0.0, -1.0, 0.0}});
    EXPECT_TRUE(below) << "the eye lies below the ground";
}

TEST_F(LandscapeViewTest, OffscreenPicturesCanBeDrawnInTheWindow) {
    load({s_everest});
    const NBX::SO<NBX::PBufferCanvasGL> canvas(
        new NBX::PBufferCanvasGL(16, 16, 23, nullptr, false, GL_RGBA, GL_TEXTURE_2D));
    ASSERT_TRUE(canvas->isCreated());
    canvas->redisplay();
    const auto texture = canvas->newTexture(0, false);
    ASSERT_TRUE(texture);
    ASSERT_TRUE(view->canvas()->makeContextCurrent());
    GLint width = 0;
    texture->bind(view->canvas()->engine().get());
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
    glBindTexture(GL_TEXTURE_2D, 0);
    EXPECT_EQ(GLenum(GL_NO_ERROR), glGetError());
    view->canvas()->releaseContext();
    EXPECT_EQ(16, width);
}

class ChunkedViewTest : public LandscapeViewTest {
    TerrainMethod method() const override { return TerrainMethod::Chunked; }
};

TEST_F(ChunkedViewTest, IsShownWithItsFigures) {
    load({s_everest, s_everestImage});
    EXPECT_GT(view->frames().drawn.patches, 0U);
    EXPECT_GT(view->frames().drawn.triangles, 100U);
    EXPECT_TRUE(view->groundAt(middle()));
    const auto still = picture();
    QTest::keyClick(view, Qt::Key_P);
    ASSERT_TRUE(settle());
    EXPECT_GT(difference(still, picture()), 0.1);
    QTest::keyClick(view, Qt::Key_P);
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(still, picture()), 1e-3);
}

TEST_F(LandscapeViewTest, DrawingLeavesNoErrorBehind) {
    load({s_everest, s_everestImage});
    ASSERT_TRUE(view->canvas()->makeContextCurrent());
    EXPECT_EQ(GLenum(GL_NO_ERROR), glGetError());
    view->canvas()->releaseContext();
    EXPECT_FALSE(view->canvas()->isContextCurrent());
}

} // namespace
