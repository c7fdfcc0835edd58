#include <nbx/scene/node/scenething.h>

#include <gtest/gtest.h>

#include <nbx/engine/technique.h>
#include <nbx/object/exception.h>
#include <nbx/scene/view/translation.h>
#include <support/recordedreports.h>

#include "engineprobes.h"

namespace {

using namespace NBX;

struct SceneThingEvaluationTest : testing::Test {
    SceneThingEvaluationTest() { probeLog().clear(); }

    SceneThing * make(std::initializer_list<RenderObj *> objects) {
        auto * thing = new SceneThing();
        for (RenderObj * object : objects)
            thing->append(object);
        return thing;
    }
    std::string evaluated(SceneThing * thing) {
        const SO<SceneThing> held(thing);
        thing->evaluate(engine.get());
        return takeProbeLog();
    }
    static ProbeShape * shape(const char * name) { return new ProbeShape(name); }
    static ProbeAttribute * attribute(const char * name) { return new ProbeAttribute(name); }
    static ProbeEffect * effect(const char * name) { return new ProbeEffect(name); }

    SO<ProbeEngine> engine{new ProbeEngine()};
    RecordedReports reports;
};

TEST_F(SceneThingEvaluationTest, ProcessesItsObjectsInOrderAndPopsInReverse) {
    SceneThing * child = make({attribute("c"), shape("2")});
    EXPECT_EQ(evaluated(make({shape("0"), attribute("a"), shape("1"), child,
                              new SimplifiedProbeAttribute("s"), shape("3")})),
              "0 +a 1 +c 2 -c +a <s 3 >s -a");
    EXPECT_EQ(engine->getAttribute(ProbeAttribute::ClassNameNBX()), nullptr);
    EXPECT_TRUE(reports.empty()) << reports;
}

/// Paints what `ProbeShapePainter` paints under another name.
class RenamingPainter : public ShapePainter {
    NBX_TEMPLATE_CLASS(RenamingPainter, ShapePainter)
public:
    explicit RenamingPainter(std::string name) : name_(std::move(name)) {}
    ID target() const override { return ProbeShape::ClassNameNBX(); }
    bool render(Engine *, const Shape *) override {
        probeLog().push_back(name_);
        return true;
    }

private:
    std::string name_;
};

TEST_F(SceneThingEvaluationTest, AHandlerHoldsForWhatFollowsInItsNodeAndBelow) {
    SceneThing * below = make({shape("2"), new RenamingPainter("r"), shape("3")});
    SceneThing * node = make({shape("0"), new RenamingPainter("q"), shape("1"), below, shape("4")});
    EXPECT_EQ(evaluated(make({node, shape("5")})), "0 q q r q 5");
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(SceneThingEvaluationTest, AHandlerBetweenEffectsHoldsBehindThemToo) {
    EXPECT_EQ(evaluated(make(
                  {effect("e"), shape("0"), new RenamingPainter("q"), shape("1"), effect("f"), shape("2")})),
              evaluated(make({effect("e"), shape("0"), shape("q"), effect("f"), shape("q")})));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(SceneThingEvaluationTest, HandlersAreInstalledWithTheAttributes) {
    const SO<SceneThing> thing(make({new RenamingPainter("q"), attribute("a")}));
    const SO<Shape> painted(shape("x"));
    thing->install(engine.get());
    engine->paint(painted.get());
    thing->deinstall(engine.get());
    engine->paint(painted.get());
    EXPECT_EQ(takeProbeLog(), "+a q -a x");
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(SceneThingEvaluationTest, DisabledNodesAndThoseThatDoNotRenderAreLeftOut) {
    const SO<SceneThing> off(make({shape("off")})), hidden(make({shape("hidden")}));
    off->setEnableState(false);
    hidden->setNodeState(SceneNode::NS_Bounds);
    EXPECT_EQ(evaluated(make({off.get(), shape("on"), hidden.get()})), "on");
    hidden->paint(engine.get());
    EXPECT_EQ(takeProbeLog(), "");
    hidden->setNodeState(SceneNode::NS_Renders);
    hidden->paint(engine.get());
    EXPECT_EQ(takeProbeLog(), "hidden");
}

TEST_F(SceneThingEvaluationTest, NullEngineIsReported) {
    const SO<SceneThing> thing(make({shape("x")}));
    thing->evaluate(nullptr);
    thing->install(nullptr);
    thing->deinstall(nullptr);
    EXPECT_EQ(reports.count(0, L"engine", L"no engine"), 3U);
}

TEST_F(SceneThingEvaluationTest, PassEffectsAreHandedOverTopFirstWithWhatFollows) {
    EXPECT_EQ(evaluated(make({shape("0"), effect("T"), effect("B"), shape("1"), shape("2")})),
              "0 TB1{ 1 2 } TB2{ 1 2 }");
    EXPECT_EQ(evaluated(make({effect("T"), attribute("a"), make({shape("1")})})), "+a T1{ 1 } T2{ 1 } -a");
}

TEST_F(SceneThingEvaluationTest, LaterPassEffectsBeginAnewAndDisabledOnesDoNot) {
    EXPECT_EQ(evaluated(make({effect("T"), shape("1"), effect("U"), shape("2")})),
              "T1{ 1 } T2{ 1 } U1{ 2 } U2{ 2 }");
    const SO<ProbeEffect> off(effect("X"));
    off->setEnableState(false);
    EXPECT_EQ(evaluated(make({effect("T"), shape("1"), off.get(), shape("2")})), "T1{ 1 2 } T2{ 1 2 }");
    EXPECT_EQ(evaluated(make({off.get(), shape("1")})), "1");
    EXPECT_EQ(evaluated(make({shape("1"), effect("T")})), "1");
}

TEST_F(SceneThingEvaluationTest, AttributesBetweenShapesUnderPassEffectsHoldForTheRest) {
    EXPECT_EQ(evaluated(make({effect("T"), shape("1"), attribute("a"), shape("2"), effect("U"), shape("3")})),
              "T1{ 1 +a 2 -a } T2{ 1 +a 2 -a } +a U1{ 3 } U2{ 3 } -a");
    EXPECT_EQ(engine->getAttribute(ProbeAttribute::ClassNameNBX()), nullptr);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(SceneThingEvaluationTest, InstallPushesTheAttributesAlone) {
    const SO<SceneThing> thing(make({attribute("a"), shape("1"), attribute("b")}));
    thing->install(engine.get());
    EXPECT_EQ(takeProbeLog(), "+a +b");
    EXPECT_TRUE(engine->getAttribute(ProbeAttribute::ClassNameNBX()));
    thing->deinstall(engine.get());
    EXPECT_EQ(takeProbeLog(), "-b +a -a");
}

TEST_F(SceneThingEvaluationTest, MatricesAreAsBeforeBehindANode) {
    const SO<SceneThing> thing(
        make({new Translation({1, 0, 0}), make({new Translation({0, 1, 0}), shape("1")})}));
    thing->evaluate(engine.get());
    EXPECT_EQ(engine->modelMatrix(), Matrix4x4Base<double>());
    EXPECT_EQ(engine->modelViewChanges, 4U);
}

/// Draws in the passes 1 and 3.
class TwoPasses : public Technique {
    NBX_TEMPLATE_CLASS(TwoPasses, Technique)
public:
    bool usesPass(int pass) const override { return pass == 1 || pass == 3; }
    void activatePass(int pass) override {
        Technique::activatePass(pass);
        probeLog().push_back("pass" + std::to_string(pass));
    }
};

TEST_F(SceneThingEvaluationTest, TechniqueRunsEveryPassThatItUses) {
    const SO<SceneThing> thing(make({shape("x")}));
    const SO<Technique> technique(new TwoPasses());
    engine->evaluate(thing.get(), technique.get());
    EXPECT_EQ(takeProbeLog(), "pass1 x pass3 x pass-1 pass-1");
    EXPECT_EQ(engine->technique(), nullptr);
    technique->setEnableState(false);
    engine->evaluate(thing.get(), technique.get());
    EXPECT_EQ(takeProbeLog(), "");
    engine->evaluate(thing.get());
    EXPECT_EQ(takeProbeLog(), "x");
    engine->evaluate(nullptr);
    EXPECT_EQ(reports.count(0, L"node", L"no node"), 1U);
}

/// Throws when it is evaluated.
class ThrowingNode : public SceneNode {
    NBX_TEMPLATE_CLASS(ThrowingNode, SceneNode)
public:
    void evaluate(Engine *) override { throw IOError(L"out of order"); }
    Bounds boundingBox(Engine *) override { return Bounds(); }
};

TEST_F(SceneThingEvaluationTest, TechniqueIsStoppedAndGoneWhenANodeThrows) {
    const SO<SceneThing> thing(make({attribute("a"), new Translation({1, 0, 0}), new ThrowingNode()}));
    const SO<Technique> technique(new TwoPasses());
    EXPECT_THROW(engine->evaluate(thing.get(), technique.get()), IOError);
    EXPECT_EQ(takeProbeLog(), "pass1 +a -a pass-1");
    EXPECT_EQ(technique->activePass(), -1);
    EXPECT_EQ(engine->technique(), nullptr);
    EXPECT_EQ(engine->modelMatrix(), Matrix4x4Base<double>());
    EXPECT_THROW(engine->evaluate(thing.get()), IOError);
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
