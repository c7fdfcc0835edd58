#include <nbx/analysis/scenegraphanalyzer.h>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <random>
#include <set>

#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/constantiterator.h>
#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/engine/engine.h>
#include <nbx/engine/shapesimplifier.h>
#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/textureunitsettinggl.h>
#include <nbx/image/encodedimage.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/pngwriter.h>
#include <nbx/scene/attribute/attributecomposite.h>
#include <nbx/scene/attribute/clipplane.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/attribute/directionallight.h>
#include <nbx/scene/attribute/distantlight.h>
#include <nbx/scene/attribute/facestyle.h>
#include <nbx/scene/attribute/pointlight.h>
#include <nbx/scene/attribute/shapematerial.h>
#include <nbx/scene/node/lodnode.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/shape/composite.h>
#include <nbx/scene/shape/lineset.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/scaling.h>
#include <nbx/scene/view/translation.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

namespace {

using namespace NBX;
using V = Vector3Base<double>;
using Matrix = Matrix4x4Base<double>;
using Analyzer = SceneGraphAnalyzer;
using Found = SO<Iterator<SO<FoundObject>>>;

SO<PolygonSet::Vertices> vectors(std::vector<V> values) {
    return new Array<V>(std::move(values));
}

/// One triangle with its corner at `at`.
SO<PolygonSet> triangle(const V & at = {}) {
    return new PolygonSet(PolygonSet::PT_Triangles, vectors({at, at + V(1, 0, 0), at + V(0, 1, 0)}));
}

SO<PolygonSet> colored(const std::vector<Color> & colors) {
    std::vector<V> corners;
    for (unsigned i = 0; i < colors.size(); ++i)
        corners.emplace_back(i, i * i, 0);
    const SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, vectors(corners)));
    set->setColorIterator(new Array<Color>(colors));
    return set;
}

SO<PolygonSet> textured(const V & at = {}) {
    const SO<PolygonSet> set = triangle(at);
    set->setTextureIterator(vectors({V(0, 0, 0), V(1, 0, 0), V(0, 1, 0)}));
    return set;
}

SO<Image> image(LayerSequence sequence, float alpha) {
    const SO<Image> result(new MemoryImage(4, 4, sequence));
    for (int i = 0; i < 16; ++i)
        result->setColor(i % 4, i / 4, Color(0.5F, 0.5F, 0.5F, i == 11 ? alpha : 1.0F));
    return result;
}

SO<SceneThing> node(SceneThing * parent, const std::vector<RenderObj *> & objects) {
    const SO<SceneThing> result(new SceneThing(parent));
    for (RenderObj * object : objects)
        result->append(object);
    return result;
}

Found sets(const SO<SceneThing> & scene) {
    return Analyzer::findObjects(PolygonSet::ClassNameNBX(), scene.get(), false);
}

const PolygonSet & setOf(const SO<FoundObject> & found) {
    return dynamic_cast<const PolygonSet &>(*found->object());
}

/// All corners of all triangles, in the frame of the scene.
std::vector<V> corners(const SO<SceneThing> & scene) {
    std::vector<V> result;
    const Found all = sets(scene);
    for (const SO<FoundObject> & found : *all) {
        const PolygonSet & set = setOf(found);
        std::array<unsigned, 3> t;
        for (unsigned i = 0; i < set.triangles(); ++i)
            if (set.triangle(i, t))
                for (const unsigned corner : t)
                    result.push_back(found->matrix() * set.newVertexIterator()->get(corner));
    }
    return result;
}

const Color * colorOf(const SO<FoundObject> & found) {
    const auto * attribute = found->context()->get<ColorAttribute>(ColorAttribute::ClassNameNBX());
    return attribute ? &attribute->getColor() : nullptr;
}

/// Nodes within each other, from the top, and the innermost one.
std::pair<SO<SceneThing>, SceneThing *> chain(unsigned nodes) {
    const SO<SceneThing> root(new SceneThing());
    SceneThing * last = root.get();
    for (unsigned i = 1; i < nodes; ++i)
        last = node(last, {}).get();
    return {root, last};
}

// --- findObjects

TEST(FindObjects, GivesPlacesInTheOrderOfDrawing) {
    const SO<SceneThing> scene(new SceneThing());
    const SO<PolygonSet> a = triangle(), b = triangle(), c = triangle();
    scene->append(a.get());
    node(scene.get(), {new Translation(V(1, 2, 3)), b.get()});
    scene->append(a.get());
    scene->append(c.get());
    const Found found = sets(scene);
    ASSERT_EQ(found->size(), 4U);
    EXPECT_EQ(found->get(0)->object(), a);
    EXPECT_EQ(found->get(1)->object(), b);
    EXPECT_EQ(found->get(2)->object(), a);
    EXPECT_EQ(found->get(3)->object(), c);
    EXPECT_EQ(found->get(0)->matrix(), Matrix());
    EXPECT_EQ(found->get(1)->matrix(), Matrix::translation(V(1, 2, 3)));
    EXPECT_EQ(found->get(3)->matrix(), Matrix());
}

TEST(FindObjects, AttributesHoldForWhatFollowsAndBelow) {
    const SO<SceneThing> scene(new SceneThing());
    scene->append(triangle().get());
    scene->append(new ColorAttribute(Color::red));
    node(scene.get(), {triangle().get(), new ColorAttribute(Color::green), triangle().get()});
    scene->append(triangle().get());
    scene->append(new ColorAttribute(Color::blue));
    scene->append(triangle().get());
    const Found found = sets(scene);
    ASSERT_EQ(found->size(), 5U);
    EXPECT_EQ(colorOf(found->get(0)), nullptr);
    const Color expected[] = {Color::red, Color::green, Color::red, Color::blue};
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(*colorOf(found->get(i + 1)), expected[i]) << i;
}

TEST(FindObjects, TransformationsAddUpInTheirNodeAlone) {
    const SO<SceneThing> scene(new SceneThing());
    const SO<Tf> move(new Translation(V(1, 0, 0))), grow(new Scaling(V(2, 2, 2)));
    node(scene.get(), {move.get(), grow.get(), triangle().get()});
    scene->append(triangle().get());
    const Found found = sets(scene);
    EXPECT_EQ(found->get(0)->matrix(), move->getMatrix() * grow->getMatrix());
    EXPECT_TRUE(found->get(0)->context()->isEmpty()) << "transformations are no part of what is in force";
    EXPECT_EQ(found->get(1)->matrix(), Matrix());
}

TEST(FindObjects, WhatIsDisabledIsNotThere) {
    const SO<SceneThing> scene(new SceneThing());
    const SO<PolygonSet> off = triangle();
    off->setEnableState(false);
    const SO<ColorAttribute> color(new ColorAttribute(Color::red));
    color->setEnableState(false);
    const SO<Tf> move(new Translation(V(1, 0, 0)));
    move->setEnableState(false);
    for (RenderObj * object : std::initializer_list<RenderObj *>{off.get(), color.get(), move.get()})
        scene->append(object);
    node(scene.get(), {triangle().get()})->setEnableState(false);
    node(scene.get(), {triangle().get()})->setNodeState(SceneNode::NS_Bounds);
    scene->append(triangle().get());
    const Found found = sets(scene);
    ASSERT_EQ(found->size(), 1U);
    EXPECT_TRUE(found->get(0)->context()->isEmpty());
    EXPECT_EQ(found->get(0)->matrix(), Matrix());
    scene->setEnableState(false);
    EXPECT_TRUE(sets(scene)->isEmpty());
}

TEST(FindObjects, FindsNodesAttributesAndMembersToo) {
    const SO<SceneThing> scene(new SceneThing());
    const SO<Composite> inner(new Composite()), outer(new Composite());
    inner->append(triangle().get());
    outer->append(inner.get());
    outer->append(triangle().get());
    node(scene.get(), {new Translation(V(1, 0, 0)), new ColorAttribute(), outer.get()});
    const auto count = [&](const ID & name, bool exact) {
        return Analyzer::findObjects(name, scene.get(), exact)->size();
    };
    EXPECT_EQ(count(PolygonSet::ClassNameNBX(), false), 2U);
    EXPECT_EQ(count(SceneThing::ClassNameNBX(), false), 1U);
    EXPECT_EQ(count(ColorAttribute::ClassNameNBX(), false), 1U);
    EXPECT_EQ(count(Tf::ClassNameNBX(), false), 1U);
    EXPECT_EQ(count(Tf::ClassNameNBX(), true), 0U) << "a translation is a derived class";
    EXPECT_EQ(count(Translation::ClassNameNBX(), true), 1U);
    EXPECT_EQ(count(Shape::ClassNameNBX(), false), 4U);
}

TEST(FindObjects, CompositeAttributesCountAsTheirMembers) {
    const SO<SceneThing> scene(new SceneThing());
    const SO<AttributeComposite> inner(new AttributeComposite()), outer(new AttributeComposite()),
        off(new AttributeComposite());
    inner->append(new ColorAttribute(Color::green));
    outer->append(new ColorAttribute(Color::red));
    outer->append(inner.get());
    outer->append(new Translation(V(5, 0, 0)));
    off->append(new ColorAttribute(Color::blue));
    off->setEnableState(false);
    node(scene.get(), {outer.get(), off.get(), triangle().get()});
    const Found found = sets(scene);
    EXPECT_EQ(*colorOf(found->get(0)), Color::green);
    EXPECT_EQ(found->get(0)->matrix(), Matrix::translation(V(5, 0, 0)));
}

TEST(FindObjects, LightsAreThoseOfTheSceneFrame) {
    const SO<SceneThing> scene(new SceneThing());
    const SO<DirectionalLight> plain(new DirectionalLight(V(0, 0, 1)));
    scene->append(plain.get());
    node(scene.get(), {new Translation(V(1, 2, 3)), new Scaling(V(2, 2, 2)), new PointLight(V(1, 1, 1)),
                       new ClipPlane(V(1, 0, 0), -3.0), triangle().get()});
    const Found found = sets(scene);
    const std::vector<SO<RenderObj>> & others = found->get(0)->context()->others();
    ASSERT_EQ(others.size(), 3U);
    EXPECT_EQ(others[0], plain);
    EXPECT_EQ(dynamic_cast<const PointLight &>(*others[1]).getPosition(), V(3, 4, 5));
    // What has x at 3 within the node has it at 7 in the scene.
    const auto & plane = dynamic_cast<const ClipPlane &>(*others[2]);
    EXPECT_NEAR(plane.getNormal().dot(V(7, 9, 9)) + plane.getDistance(), 0.0, 1e-12);
    EXPECT_GT(plane.getNormal().dot(V(8, 9, 9)) + plane.getDistance(), 0.0);
}

TEST(FindObjects, DirectionsOfLightsTurnWithTheirNode) {
    const SO<SceneThing> scene(new SceneThing());
    const Matrix turn = Matrix::rotation(V(0, 0, 1), std::acos(0.0));
    node(scene.get(), {new Translation(V(9, 9, 9)), new Tf(turn), new DirectionalLight(V(1, 0, 0)),
                       new DistantLight(V(0, 1, 0)), triangle().get()});
    const std::vector<SO<RenderObj>> others = sets(scene)->get(0)->context()->others();
    const V along = dynamic_cast<const DirectionalLight &>(*others[0]).getDirection();
    const V towards = dynamic_cast<const DistantLight &>(*others[1]).getDirection();
    EXPECT_NEAR((along - V(0, 1, 0)).length(), 0.0, 1e-12);
    EXPECT_NEAR((towards - V(-1, 0, 0)).length(), 0.0, 1e-12);
}

TEST(FindObjects, PassEffectsHoldUpToTheNextGroupInTheirNode) {
    const SO<SceneThing> scene(new SceneThing());
    class Effect : public TexturingEffectGL {};
    const SO<TexturingEffectGL> a(new Effect()), b(new Effect()), c(new Effect());
    scene->append(a.get());
    scene->append(new ColorAttribute());
    scene->append(b.get());
    scene->append(triangle().get());
    scene->append(c.get());
    scene->append(triangle().get());
    const Found found = sets(scene);
    using Objects = std::vector<SO<RenderObj>>;
    EXPECT_EQ(found->get(0)->context()->others(), (Objects{a, b}));
    EXPECT_EQ(found->get(1)->context()->others(), (Objects{c}));
}

TEST(FindObjects, OfLevelsOfDetailTheFirstCounts) {
    const SO<SceneThing> scene(new SceneThing());
    const SO<LODNode> lod(new LODNode());
    const SO<PolygonSet> fine = triangle();
    lod->append(node(nullptr, {new ColorAttribute(Color::red), fine.get()}).get(), 10.0);
    lod->append(node(nullptr, {triangle().get(), triangle().get()}).get(), 100.0);
    scene->append(lod.get());
    scene->append(new LODNode());
    scene->append(triangle().get());
    const Found found = sets(scene);
    ASSERT_EQ(found->size(), 2U);
    EXPECT_EQ(found->get(0)->object(), fine);
    EXPECT_EQ(colorOf(found->get(1)), nullptr);
}

TEST(FindObjects, ShapesUnderTheSameAttributesShareTheirContext) {
    const SO<SceneThing> scene(new SceneThing());
    scene->append(new ColorAttribute());
    scene->append(triangle().get());
    node(scene.get(), {new Translation(V(1, 0, 0)), triangle().get()});
    const Found found = sets(scene);
    EXPECT_EQ(found->get(0)->context(), found->get(1)->context());
}

TEST(FindObjects, NullIsReported) {
    RecordedReports reports;
    EXPECT_TRUE(Analyzer::findObjects(PolygonSet::ClassNameNBX(), nullptr, false)->isEmpty());
    Analyzer::forceShapeType(nullptr, 0);
    Analyzer::flattenScene(nullptr);
    EXPECT_EQ(Analyzer::createOptimizedScene(nullptr, true, true)->objects(), 0U);
    SO<SceneThing> opaque, transparent;
    Analyzer::splitScene(nullptr, 0.9, opaque, transparent);
    EXPECT_TRUE(opaque && transparent);
    EXPECT_EQ(reports.count(0, L"scene", L"no scene"), 5U) << reports;
}

// --- deep and wide scenes

TEST(DeepAnalysis, NeedsNoDeepStackAndTimeForEachPlaceOnce) {
    constexpr unsigned depth = 60000;
    const auto [root, last] = chain(depth);
    SceneThing * at = root.get();
    const auto begin = std::chrono::steady_clock::now();
    for (unsigned i = 0; i + 1 < depth; ++i) {
        SceneThing * next = dynamic_cast<SceneThing *>(at->object(0));
        at->insert(0, new Box(V(0, 0, 0), V(1, 1, 1)));
        at->insert(1, new ColorAttribute(Color(0.5F, float(i), 0.0F)));
        at->insert(2, new Translation(V(1, 0, 0)));
        at = next;
    }
    last->append(triangle().get());
    Analyzer::forceShapeType(root.get(), 0);
    EXPECT_EQ(sets(root)->size(), depth);
    Analyzer::flattenScene(root.get());
    ASSERT_EQ(root->objects(), depth);
    EXPECT_EQ(root->boundingBox(nullptr), Bounds(V(0, 0, 0), V(depth, 1, 1)));
    const SO<SceneThing> joined = Analyzer::createOptimizedScene(root.get(), true, true);
    EXPECT_LE(joined->objects(), 4U);
    SO<SceneThing> opaque, transparent;
    Analyzer::splitScene(joined.get(), 0.9, opaque, transparent);
    EXPECT_EQ(transparent->objects(), 0U);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    EXPECT_LT(seconds.count(), 30.0) << "a quadratic walk takes minutes";
}

TEST(DeepAnalysis, CompositesMayBeNestedDeep) {
    constexpr unsigned depth = 60000;
    const SO<Composite> shapes(new Composite());
    Composite * inner = shapes.get();
    const SO<AttributeComposite> attributes(new AttributeComposite());
    AttributeComposite * innerAttribute = attributes.get();
    for (unsigned i = 0; i < depth; ++i) {
        const SO<Composite> next(new Composite());
        inner->append(next.get());
        inner = next.get();
        const SO<AttributeComposite> nextAttribute(new AttributeComposite());
        innerAttribute->append(nextAttribute.get());
        innerAttribute = nextAttribute.get();
    }
    inner->append(new Box(V(0, 0, 0), V(1, 1, 1)));
    innerAttribute->append(new ColorAttribute(Color::red));
    const SO<SceneThing> scene = node(nullptr, {attributes.get(), shapes.get()});
    Analyzer::forceShapeType(scene.get(), 0);
    const Found found = sets(scene);
    ASSERT_EQ(found->size(), 1U);
    EXPECT_EQ(*colorOf(found->get(0)), Color::red);
    EXPECT_EQ(setOf(found->get(0)).triangles(), 12U);
}

TEST(DeepAnalysis, ManyShapesOfOneNodeAreReplacedInOneWalk) {
    constexpr unsigned size = 60000;
    const SO<SceneThing> scene(new SceneThing());
    for (unsigned i = 0; i < size; ++i)
        scene->append(i % 2 == 0 ? static_cast<Shape *>(new Box(V(i, 0, 0), V(i + 1, 1, 1)))
                                 : new LineSet(LineSet::PT_Lines, vectors({V(0, 0, 0), V(1, 1, 1)})));
    RecordedReports reports;
    const auto begin = std::chrono::steady_clock::now();
    Analyzer::forceShapeType(scene.get(), 0);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(), 10.0);
    EXPECT_EQ(scene->objects(), size / 2);
    EXPECT_EQ(
        reports.count(
            2, L"false",
            L"shapes of the class NBX::LineSet, which cannot be turned into polygons, are left out: 30000"),
        1U)
        << reports;
}

// --- forceShapeType

/// A shape whose simplifier gives two sets, one of them coloured and moved.
class TwoSets : public Shape {
    NBX_TEMPLATE_CLASS(TwoSets, Shape)
public:
    TwoSets() : Shape(true) {}
    Bounds boundingBox() const override { return Bounds(V(0, 0, 0), V(1, 1, 1)); }
};

class TwoSetsSimplifier : public ShapeSimplifier {
    NBX_TEMPLATE_CLASS(TwoSetsSimplifier, ShapeSimplifier)
public:
    ID target() const override { return TwoSets::ClassNameNBX(); }
    bool simplify(Engine * engine, const Shape *) override {
        engine->paint(triangle().get());
        const AttributeScope color(engine, new ColorAttribute(Color::green));
        const AttributeScope move(engine, new Translation(V(0, 0, 7)));
        const SO<Composite> composite(new Composite());
        composite->append(new Box(V(0, 0, 0), V(1, 1, 1)));
        composite->append(new LineSet(LineSet::PT_Lines, vectors({V(0, 0, 0), V(1, 1, 1)})));
        engine->paint(composite.get());
        return true;
    }
};
NBX_REGISTER_HANDLER(TwoSetsSimplifier)

TEST(ForceShapeType, ShapesBecomePolygonSetsInTheirPlace) {
    const SO<PolygonSet> before = triangle(), behind = triangle();
    const SO<SceneThing> scene = node(
        nullptr, {before.get(), new Translation(V(1, 0, 0)), new Box(V(0, 0, 0), V(1, 1, 1)), behind.get()});
    RecordedReports reports;
    Analyzer::forceShapeType(scene.get(), 0);
    ASSERT_EQ(scene->objects(), 4U);
    EXPECT_EQ(scene->object(0), before.get());
    const auto * box = dynamic_cast<const PolygonSet *>(scene->object(2));
    ASSERT_TRUE(box) << "one set without attributes needs no node";
    EXPECT_EQ(box->boundingBox(), Bounds(V(0, 0, 0), V(1, 1, 1))) << "in the frame of the node";
    EXPECT_EQ(scene->object(3), behind.get());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(ForceShapeType, KeepsWhatSimplifiersPush) {
    const SO<SceneThing> scene = node(nullptr, {new Translation(V(1, 0, 0)), new TwoSets()});
    RecordedReports reports;
    Analyzer::forceShapeType(scene.get(), 0);
    const Found found = sets(scene);
    ASSERT_EQ(found->size(), 2U);
    EXPECT_EQ(colorOf(found->get(0)), nullptr);
    EXPECT_EQ(found->get(0)->matrix(), Matrix::translation(V(1, 0, 0)));
    ASSERT_TRUE(colorOf(found->get(1)));
    EXPECT_EQ(*colorOf(found->get(1)), Color::green);
    EXPECT_EQ(found->get(1)->matrix(), Matrix::translation(V(1, 0, 7)));
    EXPECT_EQ(reports.size(), 1U) << "the line: " << reports;
}

TEST(ForceShapeType, ShapesWithoutPolygonsAreTakenOutAndTold) {
    const SO<SceneThing> scene(new SceneThing());
    const SO<Shape> off(new LineSet());
    off->setEnableState(false);
    scene->append(new LineSet(LineSet::PT_Lines, vectors({V(0, 0, 0), V(1, 1, 1)})));
    scene->append(new Composite());
    scene->append(off.get());
    RecordedReports reports;
    Analyzer::forceShapeType(scene.get(), 0);
    EXPECT_EQ(scene->objects(), 1U) << "what is disabled stays";
    EXPECT_EQ(reports.size(), 1U) << "an empty composite is no loss: " << reports;
    EXPECT_EQ(reports.last().message,
              L"shapes of the class NBX::LineSet, which cannot be turned into polygons, are left out: 1");
    Analyzer::forceShapeType(scene.get(), 3);
    EXPECT_EQ(reports.last().level, 0);
    EXPECT_EQ(reports.last().condition, L"type == ST_PolygonSet");
}

TEST(ForceShapeType, ANodeOfSeveralPlacesIsRewrittenOnce) {
    const SO<SceneThing> shared =
        node(nullptr, {new Box(V(0, 0, 0), V(1, 1, 1)),
                       new LineSet(LineSet::PT_Lines, vectors({V(0, 0, 0), V(1, 1, 1)}))});
    const SO<SceneThing> scene = node(nullptr, {shared.get(), new Translation(V(9, 0, 0)), shared.get()});
    RecordedReports reports;
    Analyzer::forceShapeType(scene.get(), 0);
    EXPECT_EQ(reports.last().message,
              L"shapes of the class NBX::LineSet, which cannot be turned into polygons, are left out: 1");
    EXPECT_EQ(shared->objects(), 1U);
    const Found found = sets(scene);
    ASSERT_EQ(found->size(), 2U);
    EXPECT_EQ(found->get(0)->object(), found->get(1)->object());
    EXPECT_EQ(setOf(found->get(0)).boundingBox(), Bounds(V(0, 0, 0), V(1, 1, 1)));
}

// --- flattenScene

TEST(FlattenScene, AppliesTransformationsToVerticesAndNormals) {
    const SO<PolygonSet> set = triangle();
    set->setNormalIterator(vectors({V(0, 0, 1), V(1, 1, 0), V(0, 1, 0)}));
    set->setObjectName(L"wall");
    const SO<LineSet> lines(new LineSet(LineSet::PT_Lines, vectors({V(0, 0, 0), V(1, 1, 1)})));
    const SO<SceneThing> scene = node(nullptr, {});
    node(scene.get(), {new Translation(V(10, 0, 0)), new Scaling(V(2, 1, 1)), set.get(), lines.get(),
                       new Box(V(0, 0, 0), V(1, 1, 1))});
    Analyzer::flattenScene(scene.get());
    ASSERT_EQ(scene->objects(), 3U);
    const auto & flat = dynamic_cast<const PolygonSet &>(*scene->object(0));
    EXPECT_EQ(flat.newVertexIterator()->get(1), V(12, 0, 0));
    EXPECT_EQ(flat.newNormalIterator()->get(0), V(0, 0, 1));
    const V slanted = flat.newNormalIterator()->get(1);
    EXPECT_NEAR(slanted.length(), 1.0, 1e-12);
    EXPECT_NEAR(slanted.y / slanted.x, 2.0, 1e-12) << "at right angles to the stretched surface";
    EXPECT_EQ(flat.getObjectName(), L"wall");
    EXPECT_EQ(dynamic_cast<const LineSet &>(*scene->object(1)).newVertexIterator()->get(1), V(12, 1, 1));
    EXPECT_EQ(scene->object(2)->classInfoNBX(), PolygonSet::ClassInfoNBX()) << "a box is no box any more";
    EXPECT_EQ(set->newVertexIterator()->get(1), V(1, 0, 0)) << "the shapes given stay";
}

TEST(FlattenScene, GivesEachShapeTheAttributesInForceInTheirOrder) {
    const SO<SceneThing> scene(new SceneThing());
    const SO<ColorAttribute> red(new ColorAttribute(Color::red)), green(new ColorAttribute(Color::green));
    const SO<FaceStyle> style(new FaceStyle());
    const SO<PointLight> light(new PointLight());
    const SO<PolygonSet> a = triangle(), b = triangle(), c = triangle();
    scene->append(a.get());
    scene->append(red.get());
    scene->append(style.get());
    node(scene.get(), {light.get(), green.get(), b.get()});
    scene->append(c.get());
    Analyzer::flattenScene(scene.get());
    ASSERT_EQ(scene->objects(), 3U);
    EXPECT_EQ(scene->object(0), a.get());
    const auto & second = dynamic_cast<const SceneThing &>(*scene->object(1));
    ASSERT_EQ(second.objects(), 4U);
    EXPECT_EQ(second.object(0), style.get());
    EXPECT_EQ(second.object(1), green.get());
    EXPECT_EQ(second.object(2), light.get());
    EXPECT_EQ(second.object(3), b.get());
    const auto & third = dynamic_cast<const SceneThing &>(*scene->object(2));
    ASSERT_EQ(third.objects(), 3U);
    EXPECT_EQ(third.object(0), red.get());
    EXPECT_EQ(third.object(1), style.get());
}

TEST(FlattenScene, IsDoneAfterOnce) {
    const SO<SceneThing> scene = node(nullptr, {});
    node(scene.get(), {new Translation(V(1, 2, 3)), new ColorAttribute(), triangle().get()});
    Analyzer::flattenScene(scene.get());
    const SO<RenderObj> first(dynamic_cast<SceneThing &>(*scene->object(0)).object(1));
    Analyzer::flattenScene(scene.get());
    EXPECT_EQ(dynamic_cast<SceneThing &>(*scene->object(0)).object(1), first.get())
        << "a set that need not be moved stays the same object";
}

TEST(FlattenScene, MirrorsKeepTheWindingAndFlatMatricesTheNormals) {
    const SO<PolygonSet> set = triangle();
    set->setNormalIterator(vectors({V(0, 0, 1), V(0, 0, 1), V(0, 0, 1)}));
    const SO<SceneThing> scene = node(nullptr, {});
    node(scene.get(), {new Scaling(V(-1, 1, 1)), set.get()});
    node(scene.get(), {new Scaling(V(0, 1, 1)), set.get()});
    Analyzer::flattenScene(scene.get());
    const auto & mirrored = dynamic_cast<const PolygonSet &>(*scene->object(0));
    EXPECT_EQ(mirrored.newVertexIterator()->get(1), V(-1, 0, 0));
    EXPECT_EQ(mirrored.newVertexIterator()->get(2), V(0, 1, 0));
    const auto & flat = dynamic_cast<const PolygonSet &>(*scene->object(1));
    EXPECT_EQ(flat.newNormalIterator()->get(0), V(0, 0, 1));
}

/// A shape that nothing simplifies.
class Unknown : public Shape {
    NBX_TEMPLATE_CLASS(Unknown, Shape)
public:
    Unknown() : Shape(true) {}
};

TEST(FlattenScene, ShapesWithoutVerticesKeepTheirTransformation) {
    const SO<Shape> shape(new Unknown());
    const SO<SceneThing> scene = node(nullptr, {});
    node(scene.get(),
         {new Translation(V(1, 0, 0)), node(nullptr, {new Translation(V(0, 2, 0)), shape.get()}).get()});
    Analyzer::flattenScene(scene.get());
    const auto & flat = dynamic_cast<const SceneThing &>(*scene->object(0));
    ASSERT_EQ(flat.objects(), 2U);
    EXPECT_EQ(dynamic_cast<const Tf &>(*flat.object(0)).getMatrix(), Matrix::translation(V(1, 2, 0)));
    EXPECT_EQ(flat.object(1), shape.get());
}

/// (1) All operations keep every triangle at its place, under its colour.
TEST(FlattenScene, KeepsEveryTriangleOfRandomScenes) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto number = [&](unsigned below) { return random() % below; };
    using Corners = std::multiset<std::array<double, 7>>;
    const auto all = [](const SO<SceneThing> & scene) {
        Corners result;
        const Found placed = sets(scene);
        for (const SO<FoundObject> & found : *placed) {
            const PolygonSet & set = setOf(found);
            std::array<unsigned, 3> t;
            for (unsigned i = 0; i < set.triangles(); ++i) {
                set.triangle(i, t);
                for (const unsigned corner : t) {
                    const V p = found->matrix() * set.newVertexIterator()->get(corner);
                    Color color = colorOf(found) ? *colorOf(found) : Color::white;
                    if (set.newColorIterator()) color = set.newColorIterator()->get(corner);
                    result.insert({std::round(p.x * 1e6), std::round(p.y * 1e6), std::round(p.z * 1e6),
                                   color[0], color[1], color[2], color[3]});
                }
            }
        }
        return result;
    };
    for (unsigned round = 0; round < 200; ++round) {
        const SO<SceneThing> scene(new SceneThing());
        std::vector<SceneThing *> nodes{scene.get()};
        for (unsigned i = 0; i < 60; ++i) {
            SceneThing * at = nodes[number(unsigned(nodes.size()))];
            switch (number(6)) {
            case 0:
                nodes.push_back(node(at, {}).get());
                break;
            case 1:
                at->append(new Translation(V(number(9), number(9), number(9))));
                break;
            case 2:
                at->append(new Scaling(V(1 + number(3), 2, 0.5)));
                break;
            case 3:
                at->append(new ColorAttribute(number(2) ? Color::red : Color(0.0F, 1.0F, 0.0F, 0.5F)));
                break;
            case 4:
                at->append(colored({Color::red, Color::blue, Color(1.0F, 1.0F, 1.0F, 0.1F), Color::red,
                                    Color::red, Color::green})
                               .get());
                break;
            default:
                at->append(triangle(V(number(5), 0, 0)).get());
            }
        }
        const Corners before = all(scene);
        for (const bool bake : {false, true})
            for (const bool joinAll : {false, true}) {
                const SO<SceneThing> joined = Analyzer::createOptimizedScene(scene.get(), bake, joinAll);
                EXPECT_EQ(all(joined), before);
                EXPECT_LE(joined->objects(), sets(scene)->size());
            }
        SO<SceneThing> opaque, transparent;
        Analyzer::splitScene(scene.get(), 0.9, opaque, transparent);
        Corners parts = all(opaque);
        for (const auto & corner : parts)
            EXPECT_GE(corner[6], 0.9);
        parts.merge(all(transparent));
        EXPECT_EQ(parts, before);
        Analyzer::flattenScene(scene.get());
        EXPECT_EQ(all(scene), before);
        for (unsigned i = 0; i < scene->objects(); ++i)
            if (const auto * below = dynamic_cast<const SceneThing *>(scene->object(i))) {
                EXPECT_EQ(below->childNodes(), 0U) << "one level";
            }
    }
}

// --- createOptimizedScene

TEST(CreateOptimizedScene, JoinsWhatHasEqualAttributes) {
    const SO<SceneThing> scene(new SceneThing());
    node(scene.get(), {new FaceStyle(), triangle(V(0, 0, 0)).get()});
    node(scene.get(), {new FaceStyle(), triangle(V(5, 0, 0)).get()});
    node(scene.get(), {triangle(V(7, 0, 0)).get()});
    node(scene.get(), {new FaceStyle(), triangle(V(9, 0, 0)).get()});
    const SO<SceneThing> joined = Analyzer::createOptimizedScene(scene.get(), false, true);
    ASSERT_EQ(joined->objects(), 2U);
    EXPECT_EQ(setOf(sets(joined)->get(0)).triangles(), 3U);
    EXPECT_EQ(corners(joined)[6], V(9, 0, 0)) << "in the order of the scene";
    EXPECT_EQ(scene->objects(), 4U) << "the scene given stays";
    EXPECT_EQ(Analyzer::createOptimizedScene(scene.get(), false, false)->objects(), 3U)
        << "only those that follow each other";
}

TEST(CreateOptimizedScene, KeepsApartWhatDiffers) {
    const SO<SceneThing> scene(new SceneThing());
    const SO<PolygonSet> withNormals = triangle();
    withNormals->setNormalIterator(vectors({V(0, 0, 1), V(0, 0, 1), V(0, 0, 1)}));
    scene->append(triangle().get());
    scene->append(withNormals.get());
    scene->append(textured().get());
    scene->append(colored({Color::red, Color::red, Color::red}).get());
    node(scene.get(), {new ColorAttribute(Color::red), triangle().get()});
    node(scene.get(), {new ColorAttribute(Color::green), triangle().get()});
    node(scene.get(), {new PointLight(), triangle().get()});
    node(scene.get(), {new ContextData<int>("a", 1), triangle().get()});
    node(scene.get(), {new ContextData<int>("a", 1), triangle().get()});
    EXPECT_EQ(Analyzer::createOptimizedScene(scene.get(), false, true)->objects(), 9U)
        << "what cannot be stored is equal to itself alone";
}

TEST(CreateOptimizedScene, ReferencesAreComparedByObjectAndNamesNotAtAll) {
    const SO<TextureGL> a(new ImageTexture2DGL(image(LS_RGB, 1.0F))),
        b(new ImageTexture2DGL(image(LS_RGB, 1.0F)));
    const SO<SceneThing> scene(new SceneThing());
    for (const SO<TextureGL> & texture : {a, b, a}) {
        const SO<TextureUnitSettingGL> setting(new TextureUnitSettingGL(1, texture.get()));
        setting->setObjectName(L"setting " + std::to_wstring(scene->objects()));
        node(scene.get(), {setting.get(), triangle().get()});
    }
    EXPECT_EQ(Analyzer::createOptimizedScene(scene.get(), false, true)->objects(), 2U);
}

TEST(CreateOptimizedScene, TexturesAreEqualByTheirImageAndSettings) {
    const SO<Image> shared = image(LS_RGB, 1.0F);
    const SO<SceneThing> scene(new SceneThing());
    const auto add = [&](const SO<Image> & of, TextureGL::WrapMode wrap) {
        node(scene.get(), {new ImageTexture2DGL(of, wrap, wrap), textured().get()});
    };
    add(shared, TextureGL::WM_Repeat);
    add(shared, TextureGL::WM_Repeat);
    add(shared, TextureGL::WM_Clamp);
    add(image(LS_RGB, 1.0F), TextureGL::WM_Repeat);
    EXPECT_EQ(Analyzer::createOptimizedScene(scene.get(), false, true)->objects(), 3U);
}

/// A file of a picture with one texel of the given alpha.
std::string imageFile(float alpha) {
    const std::string path = File::temporaryFileName("analysis-") + ".png";
    const SO<MemoryDataResource> data = PNGWriter().write(image(LS_RGBA, alpha).get());
    std::ofstream(path, std::ios::binary)
        .write(static_cast<const char *>(data->pointer()), std::streamsize(data->size()));
    return path;
}

TEST(CreateOptimizedScene, TexturesOfOneFileAreEqual) {
    const TemporaryFolder folder;
    const std::string a = imageFile(1.0F), b = imageFile(1.0F);
    const SO<SceneThing> scene(new SceneThing());
    for (const std::string & path : {a, b, a})
        node(scene.get(), {new ImageTexture2DGL(SO<Image>(new EncodedImage(path))), textured().get()});
    EXPECT_EQ(Analyzer::createOptimizedScene(scene.get(), false, true)->objects(), 2U);
}

TEST(CreateOptimizedScene, ColorsGoIntoTheVerticesOfUnlitSets) {
    const SO<SceneThing> scene(new SceneThing());
    node(scene.get(), {new ColorAttribute(Color::red), triangle().get()});
    node(scene.get(), {new ColorAttribute(Color::green), triangle().get()});
    node(scene.get(),
         {new ColorAttribute(Color::blue), colored({Color::gold, Color::gold, Color::gold}).get()});
    node(scene.get(), {new ShapeMaterial(), new ColorAttribute(Color::blue), triangle().get()});
    const SO<SceneThing> joined = Analyzer::createOptimizedScene(scene.get(), true, true);
    ASSERT_EQ(joined->objects(), 2U);
    const SO<PolygonSet::Colors> colors = setOf(sets(joined)->get(0)).newColorIterator();
    ASSERT_EQ(colors->size(), 9U);
    EXPECT_EQ(colors->get(0), Color::red);
    EXPECT_EQ(colors->get(5), Color::green);
    EXPECT_EQ(colors->get(8), Color::gold) << "colours of their own stay";
    EXPECT_EQ(*colorOf(sets(joined)->get(1)), Color::blue) << "under a material";
}

TEST(CreateOptimizedScene, LinesAndOtherShapesStayAsTheyAre) {
    const SO<Shape> lines(new LineSet(LineSet::PT_Lines, vectors({V(0, 0, 0), V(1, 1, 1)})));
    const SO<SceneThing> scene = node(nullptr, {triangle().get(), lines.get(), triangle().get()});
    const SO<SceneThing> joined = Analyzer::createOptimizedScene(scene.get(), false, true);
    ASSERT_EQ(joined->objects(), 2U);
    EXPECT_EQ(joined->object(1), lines.get());
    EXPECT_EQ(Analyzer::createOptimizedScene(scene.get(), false, false)->objects(), 3U);
}

// --- splitScene

struct Split {
    SO<SceneThing> opaque, transparent;
    explicit Split(SceneThing * scene, double alpha = 0.9) {
        SceneGraphAnalyzer::splitScene(scene, alpha, opaque, transparent);
    }
};

TEST(SplitScene, LooksAtTexturesColorsAndMaterials) {
    const Color glass(0.5F, 0.5F, 0.5F, 0.5F), nearly(0.5F, 0.5F, 0.5F, 0.95F);
    struct Case {
        const char * name;
        SO<RenderObj> attribute;
        bool transparent;
    };
    const auto texture = [](const SO<Image> & of) { return SO<RenderObj>(new ImageTexture2DGL(of)); };
    const Case cases[] = {
        {"clear colour", new ColorAttribute(glass), true},
        {"nearly opaque colour", new ColorAttribute(nearly), false},
        {"material", new ShapeMaterial(glass), true},
        {"opaque material", new ShapeMaterial(), false},
        {"texture with a hole", texture(image(LS_RGBA, 0.0F)), true},
        {"texture without a hole", texture(image(LS_RGBA, 1.0F)), false},
        {"grey texture with a hole", texture(image(LS_LuminanceAlpha, 0.5F)), true},
        {"texture without alpha", texture(image(LS_RGB, 0.0F)), false},
        {"texture without an image", texture(nullptr), false},
        {"texture unit", new TextureUnitSettingGL(0, new ImageTexture2DGL(image(LS_RGBA, 0.0F))), true},
        {"other texture unit", new TextureUnitSettingGL(1, new ImageTexture2DGL(image(LS_RGBA, 0.0F))),
         false},
    };
    for (const Case & c : cases) {
        SCOPED_TRACE(c.name);
        const Split split(node(nullptr, {c.attribute.get(), textured().get()}).get());
        EXPECT_EQ(split.transparent->objects(), c.transparent ? 1U : 0U);
        EXPECT_EQ(split.opaque->objects(), c.transparent ? 0U : 1U);
    }
}

TEST(SplitScene, ImagesInFilesAreLetGoAgain) {
    const TemporaryFolder folder;
    for (const float alpha : {0.0F, 1.0F}) {
        const SO<EncodedImage> encoded(new EncodedImage(imageFile(alpha))),
            again(new EncodedImage(encoded->fileName()));
        const SO<SceneThing> scene(new SceneThing());
        for (const SO<EncodedImage> & picture : {encoded, again})
            node(scene.get(), {new ImageTexture2DGL(SO<Image>(picture)), textured().get()});
        EXPECT_EQ(Split(scene.get()).transparent->objects(), alpha < 0.5F ? 2U : 0U);
        EXPECT_FALSE(encoded->isDecoded());
        EXPECT_FALSE(again->isDecoded()) << "one look at a file is enough";
        encoded->decoded();
        Split(scene.get());
        EXPECT_TRUE(encoded->isDecoded()) << "somebody else's pixels stay";
    }
}

TEST(SplitScene, ATextureCountsOnlyWhereThereAreCoordinates) {
    const SO<RenderObj> texture(new ImageTexture2DGL(image(LS_RGBA, 0.0F)));
    EXPECT_EQ(Split(node(nullptr, {texture.get(), triangle().get()}).get()).transparent->objects(), 0U);
}

TEST(SplitScene, TrianglesGoWithTheColorsOfTheirVertices) {
    const Color glass(0.5F, 0.5F, 0.5F, 0.5F);
    const SO<PolygonSet> set = colored({Color::red, Color::red, Color::red, Color::red, Color::red, glass});
    const SO<SceneThing> scene = node(nullptr, {new ColorAttribute(glass), set.get()});
    const Split split(scene.get());
    ASSERT_EQ(sets(split.opaque)->size(), 1U) << "the colour of vertices goes before that in force";
    ASSERT_EQ(sets(split.transparent)->size(), 1U);
    EXPECT_EQ(corners(split.opaque), (std::vector<V>{V(0, 0, 0), V(1, 1, 0), V(2, 4, 0)}));
    EXPECT_EQ(corners(split.transparent), (std::vector<V>{V(3, 9, 0), V(4, 16, 0), V(5, 25, 0)}));
    const SO<PolygonSet> clear = colored({glass, glass, glass});
    EXPECT_EQ(Split(node(nullptr, {clear.get()}).get()).transparent->object(0), clear.get())
        << "a set that goes whole stays as it is";
}

TEST(SplitScene, TheThresholdItselfIsOpaque) {
    const SO<SceneThing> scene =
        node(nullptr, {new ColorAttribute(Color(1.0F, 1.0F, 1.0F, 0.5F)), triangle().get()});
    EXPECT_EQ(Split(scene.get(), 0.5).transparent->objects(), 0U);
    EXPECT_EQ(Split(scene.get(), 0.51).transparent->objects(), 1U);
}

TEST(SplitScene, TheSceneMayBeOneOfTheResults) {
    SO<SceneThing> scene = node(nullptr, {triangle().get()}), other;
    Analyzer::splitScene(scene.get(), 0.9, scene, other);
    EXPECT_EQ(scene->objects(), 1U);
}

} // namespace
