#include <nbx/engine/engine.h>

#include <gtest/gtest.h>

#include <nbx/scene/attribute/attributecomposite.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/shape/composite.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/translation.h>
#include <nbx/scene/view/viewinfo.h>
#include <nbx/scene/view/viewport.h>
#include <support/recordedreports.h>

#include "engineprobes.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;
using M = Matrix4x4Base<double>;

struct EngineTest : testing::Test {
    EngineTest() { probeLog().clear(); }

    SO<ProbeEngine> engine{new ProbeEngine()};
    SO<ProbeAttribute> a{new ProbeAttribute("a")}, b{new ProbeAttribute("b")};
    ID category = ProbeAttribute::ClassNameNBX();
    RecordedReports reports;
};

TEST_F(EngineTest, TheLastMonoAttributePushedIsTheCurrentOne) {
    EXPECT_EQ(engine->monoTable(category), nullptr);
    EXPECT_EQ(engine->getAttribute(category), nullptr);
    engine->push(a.get());
    engine->push(b.get());
    EXPECT_EQ(engine->getAttribute(category), b.get());
    ASSERT_EQ(engine->monoTable(category)->size(), 2U);
    EXPECT_EQ(engine->monoTable(category)->get(0), a.get());
    EXPECT_EQ(engine->monoTable(category)->top(), b.get());
    engine->pop(b.get());
    EXPECT_EQ(engine->getAttribute(category), a.get());
    engine->pop(a.get());
    EXPECT_EQ(engine->getAttribute(category), nullptr);
    EXPECT_TRUE(engine->monoTable(category)->isEmpty());
    EXPECT_EQ(takeProbeLog(), "+a +b -b +a -a");
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(EngineTest, TheSameAttributeMayBePushedTwice) {
    engine->push(a.get());
    engine->push(a.get());
    engine->pop(a.get());
    EXPECT_EQ(engine->getAttribute(category), a.get());
    engine->pop(a.get());
    EXPECT_EQ(takeProbeLog(), "+a +a -a +a -a");
}

TEST_F(EngineTest, AttributesOfOneCategoryDisplaceEachOtherWhateverTheirClass) {
    const SO<ProbeAttribute> derived(new DerivedProbeAttribute("d"));
    engine->push(a.get());
    engine->push(derived.get());
    EXPECT_EQ(engine->getAttribute(category), derived.get());
    engine->pop(derived.get());
    engine->pop(a.get());
    // The painter of the parent class serves the derived one.
    EXPECT_EQ(takeProbeLog(), "+a +d -d +a -a");
}

TEST_F(EngineTest, ContextDataIsFoundByName) {
    const SO<Attribute> flag(new ContextData<bool>("RenderOuterWallFlag", true));
    engine->push(flag.get());
    EXPECT_EQ(engine->getAttribute("RenderOuterWallFlag"), flag.get());
    EXPECT_EQ(engine->getAttribute("AnotherFlag"), nullptr);
    engine->pop(flag.get());
    EXPECT_EQ(engine->getAttribute("RenderOuterWallFlag"), nullptr);
}

TEST_F(EngineTest, WrongPopsAreReportedAndDoNothing) {
    engine->pop(a.get());
    EXPECT_EQ(reports.count(L"attribute is not the one pushed last"), 1U);
    engine->push(a.get());
    engine->push(b.get());
    engine->pop(a.get());
    EXPECT_EQ(reports.count(L"attribute is not the one pushed last"), 2U);
    EXPECT_EQ(engine->getAttribute(category), b.get());
    engine->push(nullptr);
    engine->pop(nullptr);
    EXPECT_EQ(reports.count(0, L"attribute", L"no attribute"), 2U);
    engine->pop(b.get());
    engine->pop(a.get());
}

TEST_F(EngineTest, DisabledMonoAttributesAreLeftOut) {
    a->setEnableState(false);
    engine->push(a.get());
    EXPECT_EQ(engine->getAttribute(category), nullptr);
    engine->pop(a.get());
    EXPECT_TRUE(reports.empty()) << reports;
    // Switched off in between: the pop still undoes the push.
    engine->push(b.get());
    b->setEnableState(false);
    engine->pop(b.get());
    EXPECT_EQ(engine->getAttribute(category), nullptr);
    EXPECT_EQ(takeProbeLog(), "+b -b");
}

TEST_F(EngineTest, DisregardedCategoriesHaveNoEffect) {
    engine->push(a.get());
    engine->disregard(category);
    EXPECT_EQ(takeProbeLog(), "+a -a");
    EXPECT_EQ(engine->getAttribute(category), nullptr);
    engine->push(b.get());
    EXPECT_EQ(engine->monoTable(category)->top(), b.get());
    EXPECT_EQ(takeProbeLog(), "");
    engine->disregard(category);
    engine->regard(category);
    EXPECT_EQ(engine->getAttribute(category), nullptr);
    engine->regard(category);
    EXPECT_EQ(engine->getAttribute(category), b.get());
    EXPECT_EQ(takeProbeLog(), "+b");
    engine->pop(b.get());
    engine->pop(a.get());
    EXPECT_EQ(takeProbeLog(), "-b +a -a");
    engine->regard(category);
    EXPECT_EQ(reports.count(L"category is not disregarded"), 1U);
}

TEST_F(EngineTest, WhatIsPushedAndPoppedWhileDisregardedLeavesNoTrace) {
    engine->push(a.get());
    takeProbeLog();
    engine->disregard(category);
    engine->push(b.get());
    engine->pop(b.get());
    engine->regard(category);
    EXPECT_EQ(takeProbeLog(), "-a +a");
    engine->pop(a.get());
}

TEST_F(EngineTest, SimplifiersEnterAndLeaveOnceEach) {
    const SO<Attribute> s(new SimplifiedProbeAttribute("s")), t(new SimplifiedProbeAttribute("t"));
    engine->push(s.get());
    engine->push(t.get());
    engine->pop(t.get());
    engine->pop(s.get());
    EXPECT_EQ(takeProbeLog(), "<s <t >t >s");
}

TEST_F(EngineTest, CompositesPushTheirMembersAndPopThemInReverse) {
    const SO<AttributeComposite> composite(new AttributeComposite());
    composite->append(a.get());
    composite->append(new SimplifiedProbeAttribute("s"));
    composite->append(b.get());
    engine->push(composite.get());
    EXPECT_EQ(engine->getAttribute(category), b.get());
    composite->remove(a.get());
    engine->pop(composite.get());
    EXPECT_EQ(takeProbeLog(), "+a <s +b -b +a >s -a");
    composite->setEnableState(false);
    engine->push(composite.get());
    engine->pop(composite.get());
    EXPECT_EQ(takeProbeLog(), "");
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(EngineTest, PolyAttributesHoldTogether) {
    const SO<ProbePolyAttribute> p(new ProbePolyAttribute()), q(new ProbePolyAttribute());
    const ID poly = ProbePolyAttribute::ClassNameNBX();
    q->setEnableState(false);
    EXPECT_EQ(engine->polyAttributeCount(poly, 3), 0U);
    engine->push(p.get());
    engine->push(q.get());
    EXPECT_EQ(engine->polyAttributeCount(poly, 3), 2U);
    EXPECT_EQ(engine->polyAttributeCount(poly, 1), 1U);
    EXPECT_EQ(engine->polyAttributeCount(poly, 2), 1U);
    EXPECT_EQ(engine->polyAttribute(poly, 0, 3), p.get());
    EXPECT_EQ(engine->polyAttribute(poly, 1, 3), q.get());
    EXPECT_EQ(engine->polyAttribute(poly, 0, 2), q.get());
    EXPECT_EQ(engine->polyAttribute(poly, 1, 1), nullptr);
    EXPECT_EQ(reports.count(L"i out of range"), 1U);
    engine->pop(p.get());
    EXPECT_EQ(reports.count(L"attribute is not the one pushed last"), 1U);
    engine->pop(q.get());
    engine->pop(p.get());
    EXPECT_EQ(engine->polyAttributeCount(poly, 3), 0U);
    EXPECT_EQ(engine->polyChanges, 4U);
}

TEST_F(EngineTest, PainterIsFoundByClassThenParentThenSimplifier) {
    engine->paint(SO<Shape>(new ProbeShape("exact")).get());
    engine->paint(SO<Shape>(new DerivedProbeShape("parent")).get());
    engine->paint(SO<Shape>(new ComplexProbeShape("simplified")).get());
    EXPECT_EQ(takeProbeLog(), "exact parent (simplified)");
}

/// Declines everything.
class DecliningPainter : public ShapePainter {
    NBX_TEMPLATE_CLASS(DecliningPainter, ShapePainter)
public:
    ID target() const override { return ComplexProbeShape::ClassNameNBX(); }
    bool render(Engine *, const Shape *) override {
        probeLog().push_back("declined");
        return false;
    }
};

TEST_F(EngineTest, PainterThatDeclinesGivesWayToTheSimplifier) {
    const SO<DecliningPainter> painter(new DecliningPainter());
    ProbeEngine::table().add(painter.get());
    const SO<Shape> shape(new ComplexProbeShape("c"));
    engine->paint(shape.get());
    EXPECT_EQ(takeProbeLog(), "declined (c)");
    // A disabled handler is not asked.
    painter->setEnableState(false);
    engine->paint(shape.get());
    EXPECT_EQ(takeProbeLog(), "(c)");
}

/// Paints what `ProbeShapePainter` paints in another way.
class OtherPainter : public ShapePainter {
    NBX_TEMPLATE_CLASS(OtherPainter, ShapePainter)
public:
    ID target() const override { return ProbeShape::ClassNameNBX(); }
    bool render(Engine *, const Shape *) override {
        probeLog().push_back("other");
        return true;
    }
};

TEST_F(EngineTest, LatestHandlerOfAClassIsAskedAndOwnOnesComeFirst) {
    const SO<Shape> shape(new ProbeShape("own"));
    const SO<OtherPainter> common(new OtherPainter()), own(new OtherPainter());
    Engine::registerHandler(common.get());
    engine->paint(shape.get());
    EXPECT_EQ(takeProbeLog(), "own");
    const SO<Engine> plain(new Engine());
    plain->paint(shape.get());
    EXPECT_EQ(takeProbeLog(), "other");
    ProbeEngine::table().add(own.get());
    engine->paint(shape.get());
    EXPECT_EQ(takeProbeLog(), "other");
    own->setEnableState(false);
    common->setEnableState(false);
    engine->paint(shape.get());
    plain->paint(shape.get());
    EXPECT_EQ(takeProbeLog(), "own");
    Engine::registerHandler(nullptr);
    EXPECT_EQ(reports.count(0, L"handler", L"no handler"), 1U);
}

TEST_F(EngineTest, PushedHandlersComeBeforeThoseRegistered) {
    const SO<Shape> shape(new ProbeShape("own")), derived(new DerivedProbeShape("derived"));
    const SO<OtherPainter> other(new OtherPainter());
    const SO<Engine> plain(new Engine());
    const auto painted = [&] {
        engine->paint(shape.get());
        engine->paint(derived.get());
        return takeProbeLog();
    };
    EXPECT_EQ(painted(), "own derived");
    engine->pushHandler(other.get());
    EXPECT_EQ(painted(), "other other");
    other->setEnableState(false);
    EXPECT_EQ(painted(), "own derived");
    other->setEnableState(true);
    plain->paint(shape.get());
    EXPECT_EQ(takeProbeLog(), "");
    engine->popHandler(other.get());
    EXPECT_EQ(painted(), "own derived");
    EXPECT_TRUE(reports.empty()) << reports;
}

/// Paints all shapes that have no painter of their own.
class AnyShapePainter : public ShapePainter {
    NBX_TEMPLATE_CLASS(AnyShapePainter, ShapePainter)
public:
    ID target() const override { return Shape::ClassNameNBX(); }
    bool render(Engine *, const Shape *) override {
        probeLog().push_back("any");
        return true;
    }
};

TEST_F(EngineTest, APushedHandlerOfAParentClassDoesNotHideOneOfTheClass) {
    const SO<AnyShapePainter> any(new AnyShapePainter());
    engine->pushHandler(any.get());
    engine->paint(SO<Shape>(new ProbeShape("own")).get());
    engine->paint(SO<Shape>(new Shape(true)).get());
    EXPECT_EQ(takeProbeLog(), "own any");
    engine->popHandler(any.get());
}

TEST_F(EngineTest, HandlersArePoppedInReverse) {
    const SO<OtherPainter> first(new OtherPainter()), second(new OtherPainter());
    engine->pushHandler(first.get());
    engine->pushHandler(second.get());
    engine->popHandler(first.get());
    EXPECT_EQ(reports.count(0, L"isLast", L"handler is not the one pushed last"), 1U) << reports;
    engine->popHandler(second.get());
    engine->popHandler(first.get());
    EXPECT_EQ(reports.size(), 1U) << reports;
    engine->popHandler(first.get());
    engine->popHandler(nullptr);
    engine->pushHandler(nullptr);
    EXPECT_EQ(reports.count(0, L"isLast", L"handler is not the one pushed last"), 3U) << reports;
    EXPECT_EQ(reports.count(0, L"handler", L"no handler"), 1U) << reports;
}

TEST_F(EngineTest, DisabledAndUnknownShapesAreLeftOut) {
    const SO<Shape> shape(new ProbeShape("x"));
    shape->setEnableState(false);
    engine->paint(shape.get());
    engine->paint(SO<Shape>(new Shape(true)).get());
    EXPECT_EQ(takeProbeLog(), "");
    EXPECT_TRUE(reports.empty());
    engine->paint(nullptr);
    EXPECT_EQ(reports.count(0, L"shape", L"no shape"), 1U);
}

TEST_F(EngineTest, CompositesArePaintedMemberByMember) {
    const SO<Composite> composite(new Composite()), inner(new Composite());
    const SO<Shape> off(new ProbeShape("off"));
    off->setEnableState(false);
    inner->append(new ProbeShape("2"));
    inner->append(off.get());
    composite->append(new ProbeShape("1"));
    composite->append(inner.get());
    composite->append(new ComplexProbeShape("3"));
    engine->paint(composite.get());
    EXPECT_EQ(takeProbeLog(), "1 2 (3)");
}

/// Keeps the last polygon set.
class PolygonSetCatcher : public ShapePainter {
    NBX_TEMPLATE_CLASS(PolygonSetCatcher, ShapePainter)
public:
    ID target() const override { return PolygonSet::ClassNameNBX(); }
    bool render(Engine *, const Shape * shape) override {
        caught = SO<const PolygonSet>(static_cast<const PolygonSet *>(shape));
        return true;
    }
    SO<const PolygonSet> caught;
};

TEST_F(EngineTest, BoxesBecomeFacesThatLookOutwards) {
    const SO<PolygonSetCatcher> catcher(new PolygonSetCatcher());
    ProbeEngine::table().add(catcher.get());
    const Bounds bounds(V(1, 2, 3), V(4, 6, 8));
    engine->paint(SO<Shape>(new Box(bounds)).get());
    catcher->setEnableState(false);
    ASSERT_TRUE(catcher->caught);
    const PolygonSet & faces = *catcher->caught;
    EXPECT_EQ(faces.boundingBox(), bounds);
    ASSERT_EQ(faces.triangles(), 12U);
    double area = 0;
    for (unsigned i = 0; i < 12; ++i) {
        std::array<unsigned, 3> t{};
        ASSERT_TRUE(faces.triangle(i, t));
        const auto & vertices = *faces.newVertexIterator();
        const V p = vertices.get(t[0]);
        const V normal = (vertices.get(t[1]) - p).cross(vertices.get(t[2]) - p);
        // In a left-handed world the corners of a front face turn the other way round their normal.
        EXPECT_LT(normal.dot(p - bounds.center()), 0.0);
        EXPECT_LT(normal.dot(faces.newNormalIterator()->get(t[0])), 0.0);
        EXPECT_GT((p - bounds.center()).dot(faces.newNormalIterator()->get(t[0])), 0.0);
        area += normal.length() / 2;
    }
    EXPECT_NEAR(area, 2 * (3 * 4 + 4 * 5 + 3 * 5), 1e-12);
}

TEST_F(EngineTest, ModelMatricesAddUp) {
    engine->pushModelMatrix(M::translation(V(10, 0, 0)));
    engine->pushModelMatrix(M::scaling(V(2, 2, 2)));
    EXPECT_EQ(engine->modelMatrix() * V(1, 1, 1), V(12, 2, 2));
    engine->popModelMatrix();
    EXPECT_EQ(engine->modelMatrix() * V(1, 1, 1), V(11, 1, 1));
    engine->popModelMatrix();
    EXPECT_EQ(engine->modelMatrix(), M());
    EXPECT_EQ(engine->modelViewChanges, 4U);
    engine->popModelMatrix();
    EXPECT_EQ(reports.count(L"no model matrix was pushed"), 1U);
    engine->popCamera();
    EXPECT_EQ(reports.count(L"no camera was pushed"), 1U);
}

TEST_F(EngineTest, TransformationsAndCamerasActThroughTheMatrices) {
    const SO<Viewport> viewport(new Viewport(Area(0, 0, 200, 100)));
    const SO<Camera> camera(new Camera(new LookAt(V(0, 0, -5), V()), new Ortho(-1, 1, -1, 1, 1, 10)));
    const SO<Translation> tf(new Translation(V(1, 2, 3)));
    engine->push(viewport.get());
    engine->push(camera.get());
    engine->push(tf.get());
    EXPECT_EQ(engine->viewMatrix(), camera->viewMatrix());
    EXPECT_EQ(engine->projectionMatrix(), camera->projectionMatrix(200, 100));
    EXPECT_EQ(engine->modelViewMatrix() * V(), V(1, 2, -8));
    const SO<const ViewInfo> info = engine->viewInfo();
    EXPECT_EQ(info->viewport(), Area(0, 0, 200, 100));
    EXPECT_NEAR((info->position() - V(-1, -2, -8)).length(), 0.0, 1e-12);
    engine->pop(tf.get());
    engine->pop(camera.get());
    engine->pop(viewport.get());
    EXPECT_EQ(engine->modelViewMatrix(), M());
    EXPECT_EQ(engine->projectionMatrix(), M());
    EXPECT_EQ(engine->projectionChanges, 2U);
    EXPECT_EQ(engine->viewport(), nullptr);
}

TEST_F(EngineTest, ScopePopsAtItsEnd) {
    {
        const AttributeScope scope(engine.get(), a.get());
        const AttributeScope none(engine.get(), nullptr);
        EXPECT_EQ(engine->getAttribute(category), a.get());
    }
    EXPECT_EQ(engine->getAttribute(category), nullptr);
}

} // namespace
