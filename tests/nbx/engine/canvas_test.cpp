#include <nbx/engine/canvas.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/viewport.h>
#include <support/recordedreports.h>
#include <support/steppedclock.h>

#include "engineprobes.h"

namespace {

using namespace NBX;

/// A canvas with a probe engine.
class ProbeCanvas : public Canvas {
    NBX_TEMPLATE_CLASS(ProbeCanvas, Canvas)
public:
    explicit ProbeCanvas(Clock * clock) : Canvas(clock) {}
    SO<Engine> processor() const override { return engine; }
    unsigned getWidth() const override { return 320; }
    unsigned getHeight() const override { return 200; }

    SO<Engine> engine{new ProbeEngine()};
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
    /// Draws of `drawn`, by letters and times, in a node of `target`.
    void note(Canvas & target, char letter, const std::function<void()> & then = {}) {
        target.append(SO<SceneNode>(new ProbeNode([this, letter, then](Engine *) {
                          drawn.emplace_back(letter, clock->time);
                          if (then) then();
                      })).get());
    }
    using Drawn = std::vector<std::pair<char, double>>;

    SO<SteppedClock> clock{new SteppedClock()};
    SO<ProbeCanvas> canvas{new ProbeCanvas(clock.get())};
    RecordedReports reports;
    Drawn drawn;
};

TEST_F(CanvasTest, WhatAPictureUsesIsNotDroppedBeforeItsEnd) {
    auto * graphics = GraphicsMemoryManager::instance();
    auto * main = MainMemoryManager::instance();
    const unsigned tooLarge = MainMemoryManager::defaultBudget + 1;
    bool isKept = false;
    const SO<SceneNode> node(new ProbeNode([&](Engine *) {
        const SO<SharedObj> a(new SharedObj), b(new SharedObj);
        graphics->add(a.get(), tooLarge);
        main->add(b.get(), tooLarge);
        isKept = graphics->contains(a.get()) && main->contains(b.get());
    }));
    canvas->append(node.get());
    canvas->redisplay();
    EXPECT_TRUE(isKept);
    EXPECT_EQ(graphics->count(), 0U);
    EXPECT_EQ(main->count(), 0U);
}

TEST_F(CanvasTest, DrawsItsRootNodesInOrder) {
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

TEST_F(CanvasTest, TellsItsNodesWhereTheyAreDrawn) {
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

TEST_F(CanvasTest, GlobalCameraHoldsForTheNodesInFrontOfIt) {
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

TEST_F(CanvasTest, FirstGlobalCameraInTheOrderOfTheSceneHolds) {
    Matrix4x4Base<double> seen;
    const auto probe =
        SO<SceneNode>(new ProbeNode([&](Engine * engine) { seen = engine->projectionMatrix(); }));
    const auto ortho = [](double size) { return SO<Ortho>(new Ortho(-size, size, -size, size, 1.0, 9.0)); };
    const auto camera = [&](double size) {
        return SO<Camera>(new Camera(new LookAt(), ortho(size).get(), Camera::S_Global));
    };
    // Behind the probe: dead ends, then a nested node, which comes before what stands behind it.
    const SO<SceneThing> scene(new SceneThing), empty(new SceneThing), hidden(new SceneThing),
        outer(new SceneThing), inner(new SceneThing);
    hidden->append(camera(1.0).get());
    hidden->setEnableState(false);
    inner->append(camera(2.0).get());
    outer->append(empty.get());
    outer->append(inner.get());
    scene->append(probe.get());
    for (const SO<SceneThing> & thing : {hidden, outer})
        scene->append(thing.get());
    scene->append(camera(3.0).get());
    canvas->append(scene.get());
    canvas->redisplay();
    EXPECT_EQ(seen, ortho(2.0)->matrix(1));
    inner->setEnableState(false);
    canvas->redisplay();
    EXPECT_EQ(seen, ortho(3.0)->matrix(1));
    hidden->setEnableState(true);
    canvas->redisplay();
    EXPECT_EQ(seen, ortho(1.0)->matrix(1));
}

TEST_F(CanvasTest, EarliestRequestCounts) {
    EXPECT_FALSE(canvas->redisplayPending());
    EXPECT_FALSE(canvas->redisplayDue(1e9));
    canvas->postForRedisplay(5.0);
    clock->time = 101.0;
    canvas->postForRedisplay(0.05);
    canvas->postForRedisplay(2.0);
    EXPECT_TRUE(canvas->redisplayPending());
    EXPECT_DOUBLE_EQ(canvas->redisplayTime(), 101.05);
    EXPECT_FALSE(canvas->redisplayDue(101.04));
    EXPECT_TRUE(canvas->redisplayDue(101.06));
    canvas->postForRedisplay(-7.0);
    EXPECT_DOUBLE_EQ(canvas->redisplayTime(), 101.0);
}

TEST_F(CanvasTest, RedisplayServesTheRequestsMadeBeforeAndKeepsThoseMadeMeanwhile) {
    canvas->postForRedisplay(0.0);
    canvas->redisplay();
    EXPECT_FALSE(canvas->redisplayPending());
    canvas->append(SO<SceneNode>(new ProbeNode([&](Engine *) { canvas->postForRedisplay(0.05); })).get());
    canvas->postForRedisplay(0.0);
    canvas->redisplay();
    EXPECT_TRUE(canvas->redisplayPending());
    EXPECT_DOUBLE_EQ(canvas->redisplayTime(), 100.05);
}

TEST_F(CanvasTest, AllCanvasesCanBeAsked) {
    const SO<SteppedClock> otherClock(new SteppedClock());
    otherClock->time = 7.0;
    const SO<ProbeCanvas> other(new ProbeCanvas(otherClock.get()));
    Canvas::postAllForRedisplay(1.0);
    EXPECT_DOUBLE_EQ(canvas->redisplayTime(), 101.0);
    EXPECT_DOUBLE_EQ(other->redisplayTime(), 8.0);
    const auto & list = Canvas::canvasList();
    EXPECT_EQ(std::count(list.begin(), list.end(), canvas.get()), 1);
    EXPECT_EQ(std::count(list.begin(), list.end(), other.get()), 1);
}

TEST(Canvas, LeavesTheListWhenItDies) {
    const std::size_t before = Canvas::canvasList().size();
    {
        const SO<ProbeCanvas> canvas(new ProbeCanvas(nullptr));
        EXPECT_EQ(Canvas::canvasList().size(), before + 1);
    }
    EXPECT_EQ(Canvas::canvasList().size(), before);
}

TEST_F(CanvasTest, RenderingModeIsCompleteAtFirst) {
    EXPECT_EQ(canvas->getRenderingMode(), 0);
    canvas->setRenderingMode(1);
    EXPECT_EQ(canvas->getRenderingMode(), 1);
}

TEST_F(CanvasTest, WithoutAnEngineNothingHappens) {
    canvas->engine = nullptr;
    canvas->redisplay();
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(CanvasTest, IsDrawnByItsClockWhenARequestIsDue) {
    note(*canvas, 'a');
    EXPECT_FALSE(clock->step()) << "nothing was asked for";
    canvas->postForRedisplay(0.5);
    clock->time = 100.4;
    EXPECT_FALSE(clock->serve());
    clock->tick(clock->now());
    EXPECT_EQ(drawn, Drawn());
    clock->time = 100.5;
    EXPECT_TRUE(clock->serve());
    EXPECT_FALSE(clock->serve());
    EXPECT_EQ(drawn, (Drawn{{'a', 100.5}}));
}

TEST_F(CanvasTest, IsDrawnInTheOrderOfTheRequestsTimes) {
    const SO<ProbeCanvas> second(new ProbeCanvas(clock.get())), third(new ProbeCanvas(clock.get()));
    note(*canvas, 'a');
    note(*second, 'b');
    note(*third, 'c');
    canvas->postForRedisplay(3.0);
    second->postForRedisplay(1.0);
    third->postForRedisplay(2.0);
    second->postForRedisplay(4.0);
    while (clock->step()) {
    }
    EXPECT_EQ(drawn, (Drawn{{'b', 101.0}, {'c', 102.0}, {'a', 103.0}}));
    EXPECT_EQ(clock->sleeps, (std::vector<double>{1.0, 1.0, 1.0})) << "it sleeps until the next is due";
}

TEST_F(CanvasTest, WhatIsDueAtOneTimeIsDrawnInTheOrderOfMaking) {
    const SO<ProbeCanvas> second(new ProbeCanvas(clock.get()));
    note(*canvas, 'a');
    note(*second, 'b');
    second->postForRedisplay(1.0);
    canvas->postForRedisplay(1.0);
    EXPECT_TRUE(clock->step());
    EXPECT_EQ(drawn, (Drawn{{'a', 101.0}, {'b', 101.0}}));
}

TEST_F(CanvasTest, RefinesUntilNothingAsksForAnotherFrame) {
    unsigned left = 3;
    note(*canvas, 'a', [&] {
        if (left-- > 0) canvas->postForRedisplay(0.25);
    });
    canvas->postForRedisplay(0.0);
    while (clock->step()) {
    }
    EXPECT_EQ(drawn, (Drawn{{'a', 100.0}, {'a', 100.25}, {'a', 100.5}, {'a', 100.75}}));
    EXPECT_EQ(clock->sleeps.size(), 3U) << "one sleep for each wait, and none for what is due";
}

TEST_F(CanvasTest, MayDieWhileItWaits) {
    SO<ProbeCanvas> other(new ProbeCanvas(clock.get()));
    note(*other, 'b');
    other->postForRedisplay(1.0);
    EXPECT_EQ(other->references(), 1) << "its clock does not keep it";
    EXPECT_EQ(clock->nextTick(), 101.0);
    other = nullptr;
    EXPECT_EQ(clock->nextTick(), Clock::never());
    clock->time = 102.0;
    clock->tick(clock->now());
    EXPECT_EQ(drawn, Drawn());
}

TEST_F(CanvasTest, MayDieWhileAnotherIsDrawn) {
    SO<ProbeCanvas> other(new ProbeCanvas(clock.get()));
    note(*canvas, 'a', [&] { other = nullptr; });
    note(*other, 'b');
    canvas->postForRedisplay(0.0);
    other->postForRedisplay(0.0);
    EXPECT_TRUE(clock->step());
    EXPECT_EQ(drawn, (Drawn{{'a', 100.0}}));
    EXPECT_FALSE(clock->step());
}

TEST_F(CanvasTest, OffItsClockItIsDrawnByItsOwnerAlone) {
    note(*canvas, 'a');
    EXPECT_TRUE(canvas->isActive());
    EXPECT_TRUE(clock->removeManager(canvas.get()));
    EXPECT_FALSE(clock->removeManager(canvas.get()));
    canvas->postForRedisplay(0.0);
    EXPECT_FALSE(clock->step());
    canvas->redisplay();
    EXPECT_EQ(drawn.size(), 1U);
    canvas->postForRedisplay(0.0);
    canvas->activate();
    EXPECT_TRUE(clock->step());
    EXPECT_EQ(drawn.size(), 2U);
    EXPECT_EQ(canvas->references(), 1) << "it is watched, not kept";
}

TEST_F(CanvasTest, RequestsWaitWhileRedisplayIsSwitchedOff) {
    note(*canvas, 'a');
    canvas->setRedisplayEnabled(false);
    canvas->postForRedisplay(0.0);
    clock->time = 200.0;
    clock->tick(clock->now());
    EXPECT_FALSE(clock->step()) << "there is nothing to sleep for";
    EXPECT_EQ(drawn, Drawn());
    EXPECT_TRUE(canvas->redisplayPending());
    canvas->setRedisplayEnabled(true);
    EXPECT_TRUE(clock->step());
    EXPECT_EQ(drawn, (Drawn{{'a', 200.0}}));
}

TEST_F(CanvasTest, NoFrameRunsWithinAFrame) {
    note(*canvas, 'a', [&] {
        canvas->postForRedisplay(0.0);
        clock->tick(clock->now());
    });
    canvas->postForRedisplay(0.0);
    EXPECT_TRUE(clock->serve());
    EXPECT_EQ(drawn.size(), 1U);
    EXPECT_TRUE(canvas->redisplayPending());
}

TEST_F(CanvasTest, AlarmTellsThatANearerTimeWasAskedFor) {
    std::vector<double> alarms;
    clock->setAlarm([&] { alarms.push_back(clock->nextTick()); });
    note(*canvas, 'a', [&] { canvas->postForRedisplay(0.0); });
    canvas->postForRedisplay(2.0);
    canvas->postForRedisplay(3.0);
    canvas->postForRedisplay(1.0);
    EXPECT_EQ(alarms, (std::vector<double>{102.0, 101.0}));
    clock->step();
    EXPECT_EQ(alarms.size(), 2U) << "whoever ticks asks again anyway";
    clock->setAlarm({});
}

TEST_F(CanvasTest, OddDelaysDoNotStopTheClock) {
    canvas->postForRedisplay(std::nan(""));
    EXPECT_EQ(canvas->redisplayTime(), 100.0);
    canvas->redisplay();
    canvas->postForRedisplay(HUGE_VAL);
    EXPECT_FALSE(clock->step());
    canvas->postForRedisplay(1.0);
    EXPECT_TRUE(clock->step());
    EXPECT_FALSE(canvas->redisplayPending());
}

TEST_F(CanvasTest, ThoseOfAnotherThreadAreNotTheClocksBusiness) {
    unsigned alarms = 0;
    clock->setAlarm([&] { ++alarms; });
    std::thread([&] {
        const SO<ProbeCanvas> other(new ProbeCanvas(clock.get()));
        other->postForRedisplay(0.0);
        EXPECT_FALSE(other->isActive());
        EXPECT_TRUE(other->redisplayPending());
        other->redisplay();
    }).join();
    EXPECT_EQ(alarms, 0U);
    EXPECT_FALSE(clock->step());
    clock->setAlarm({});
}

} // namespace
