#include <nbx/engine/canvas.h>

#include <algorithm>
#include <functional>

#include <gtest/gtest.h>

#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/viewport.h>
#include <support/recordedreports.h>

#include "engineprobes.h"

namespace {

using namespace NBX;

/// A canvas with a probe engine and a clock that is set by hand.
class ProbeCanvas : public Canvas {
    NBX_TEMPLATE_CLASS(ProbeCanvas, Canvas)
public:
    SO<Engine> processor() const override { return engine; }
    unsigned getWidth() const override { return 320; }
    unsigned getHeight() const override { return 200; }

    SO<Engine> engine{new ProbeEngine()};
    double now = 100.0;

protected:
    double currentTime() const override { return now; }
};

/// Calls a function when it is evaluated.
class ProbeNode : public SceneNode {
    NBX_TEMPLATE_CLASS(ProbeNode, SceneNode)
public:
    explicit ProbeNode(std::function<void(Engine *)> action) : action_(std::move(action)) {}
    void evaluate(Engine * engine) override { action_(engine); }
    Bounds boundingBox(Engine *) override { return Bounds(); }

private:
    std::function<void(Engine *)> action_;
};

struct CanvasTest : testing::Test {
    SO<ProbeCanvas> canvas{new ProbeCanvas()};
    RecordedReports reports;
};

TEST_F(CanvasTest, drawsItsRootNodesInOrder) {
    std::string log;
    const SO<SceneNode> first(new ProbeNode([&](Engine *) { log += "1"; }));
    const SO<SceneNode> second(new ProbeNode([&](Engine *) { log += "2"; }));
    canvas->append(first.get());
    canvas->append(second.get());
    canvas->redisplay();
    EXPECT_EQ(log, "12");
    EXPECT_EQ(canvas->rootNodes(), 2U);
    EXPECT_EQ(canvas->rootNode(1), second.get());
    EXPECT_TRUE(canvas->remove(first.get()));
    EXPECT_FALSE(canvas->remove(first.get()));
    canvas->redisplay();
    EXPECT_EQ(log, "122");
    EXPECT_TRUE(reports.empty()) << reports;
    canvas->append(nullptr);
    EXPECT_EQ(reports.count(0, L"node", L"no node"), 1U);
    EXPECT_EQ(canvas->rootNode(1), nullptr);
}

TEST_F(CanvasTest, tellsItsNodesWhereTheyAreDrawn) {
    Canvas * seen = nullptr;
    Area area;
    canvas->append(SO<SceneNode>(new ProbeNode([&](Engine * engine) {
                       const auto * data = dynamic_cast<ContextData<Canvas *> *>(
                           engine->getAttribute(Canvas::ClassNameNBX()));
                       if (data) seen = data->getValue();
                       if (engine->viewport()) area = engine->viewport()->getArea();
                   })).get());
    canvas->redisplay();
    EXPECT_EQ(seen, canvas.get());
    EXPECT_EQ(area, Area(0, 0, 320, 200));
    EXPECT_EQ(canvas->engine->getAttribute(Canvas::ClassNameNBX()), nullptr);
    EXPECT_EQ(canvas->engine->viewport(), nullptr);
}

TEST_F(CanvasTest, globalCameraHoldsForTheNodesInFrontOfIt) {
    const SO<Ortho> projection(new Ortho(-3, 3, -3, 3, -3, 3));
    Matrix4x4Base<double> seen;
    canvas->append(
        SO<SceneNode>(new ProbeNode([&](Engine * engine) { seen = engine->projectionMatrix(); })).get());
    const SO<SceneThing> thing(new SceneThing());
    const SO<Camera> camera(new Camera(new LookAt(), projection.get(), Camera::S_Local));
    const SO<Camera> global(new Camera(new LookAt(), projection.get(), Camera::S_Global));
    (new SceneThing(thing.get()))->append(camera.get());
    canvas->append(thing.get());
    canvas->redisplay();
    EXPECT_EQ(seen, Matrix4x4Base<double>());
    (new SceneThing(thing.get()))->append(global.get());
    canvas->redisplay();
    EXPECT_EQ(seen, projection->matrix(1));
    EXPECT_EQ(canvas->engine->projectionMatrix(), Matrix4x4Base<double>());
    thing->setEnableState(false);
    canvas->redisplay();
    EXPECT_EQ(seen, Matrix4x4Base<double>());
}

TEST_F(CanvasTest, earliestRequestCounts) {
    EXPECT_FALSE(canvas->redisplayPending());
    EXPECT_FALSE(canvas->redisplayDue(1e9));
    canvas->postForRedisplay(5.0);
    canvas->now = 101.0;
    canvas->postForRedisplay(0.05);
    canvas->postForRedisplay(2.0);
    EXPECT_TRUE(canvas->redisplayPending());
    EXPECT_DOUBLE_EQ(canvas->redisplayTime(), 101.05);
    EXPECT_FALSE(canvas->redisplayDue(101.04));
    EXPECT_TRUE(canvas->redisplayDue(101.06));
    canvas->postForRedisplay(-7.0);
    EXPECT_DOUBLE_EQ(canvas->redisplayTime(), 101.0);
}

TEST_F(CanvasTest, redisplayServesTheRequestsMadeBeforeAndKeepsThoseMadeMeanwhile) {
    canvas->postForRedisplay(0.0);
    canvas->redisplay();
    EXPECT_FALSE(canvas->redisplayPending());
    canvas->append(SO<SceneNode>(new ProbeNode([&](Engine *) { canvas->postForRedisplay(0.05); })).get());
    canvas->postForRedisplay(0.0);
    canvas->redisplay();
    EXPECT_TRUE(canvas->redisplayPending());
    EXPECT_DOUBLE_EQ(canvas->redisplayTime(), 100.05);
}

TEST_F(CanvasTest, allCanvasesCanBeAsked) {
    const SO<ProbeCanvas> other(new ProbeCanvas());
    other->now = 7.0;
    Canvas::postAllForRedisplay(1.0);
    EXPECT_DOUBLE_EQ(canvas->redisplayTime(), 101.0);
    EXPECT_DOUBLE_EQ(other->redisplayTime(), 8.0);
    const auto & list = Canvas::canvasList();
    EXPECT_EQ(std::count(list.begin(), list.end(), canvas.get()), 1);
    EXPECT_EQ(std::count(list.begin(), list.end(), other.get()), 1);
}

TEST(Canvas, leavesTheListWhenItDies) {
    const std::size_t before = Canvas::canvasList().size();
    {
        const SO<ProbeCanvas> canvas(new ProbeCanvas());
        EXPECT_EQ(Canvas::canvasList().size(), before + 1);
    }
    EXPECT_EQ(Canvas::canvasList().size(), before);
}

TEST_F(CanvasTest, renderingModeIsCompleteAtFirst) {
    EXPECT_EQ(canvas->getRenderingMode(), 0);
    canvas->setRenderingMode(1);
    EXPECT_EQ(canvas->getRenderingMode(), 1);
}

TEST_F(CanvasTest, withoutAnEngineNothingHappens) {
    canvas->engine = nullptr;
    canvas->redisplay();
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
