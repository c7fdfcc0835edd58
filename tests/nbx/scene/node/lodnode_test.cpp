#include <nbx/scene/node/lodnode.h>

#include <gtest/gtest.h>

#include <limits>

#include <nbx/data/objectstreamwriter.h>
#include <nbx/engine/engine.h>
#include <nbx/object/exception.h>
#include <nbx/object/wo.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/scaling.h>
#include <nbx/scene/view/translation.h>
#include <support/collectedshapes.h>
#include <support/recordedreports.h>
#include <support/storedcopy.h>

namespace {

using namespace NBX;
using V = Vector3Base<double>;

SO<SceneThing> nodeOf(RenderObj * object) {
    const SO<SceneThing> node(new SceneThing());
    if (object) node->append(object);
    return node;
}

SO<Box> box(double size) {
    return new Box(V(0, 0, 0), V(size, size, size));
}

/// Boxes of 1 and 2, shown up to 10 and 100.
SO<LODNode> twoLevels(const V & center = {}) {
    const SO<LODNode> lod(new LODNode(center));
    lod->append(nodeOf(box(1).get()).get(), 10.0);
    lod->append(nodeOf(box(2).get()).get(), 100.0);
    return lod;
}

TEST(LODNode, GivesItsLevels) {
    const SO<LODNode> lod = twoLevels();
    EXPECT_EQ(lod->lodNodes(), 2U);
    EXPECT_EQ(lod->getLodNode(1)->boundingBox(nullptr).diagonal(), V(2, 2, 2));
    EXPECT_EQ(lod->getMaxDistance(0), 10.0);
    RecordedReports reports;
    EXPECT_EQ(lod->getLodNode(2), nullptr);
    EXPECT_EQ(lod->getMaxDistance(2), 0.0);
    EXPECT_EQ(reports.size(), 2U) << reports;
}

TEST(LODNode, ALevelReachesUpToItsDistance) {
    const SO<LODNode> lod = twoLevels();
    EXPECT_EQ(lod->levelAt(0.0), lod->getLodNode(0));
    EXPECT_EQ(lod->levelAt(9.99), lod->getLodNode(0));
    EXPECT_EQ(lod->levelAt(10.0), lod->getLodNode(1));
    EXPECT_EQ(lod->levelAt(100.0), nullptr);
    EXPECT_EQ(lod->levelAt(std::numeric_limits<double>::quiet_NaN()), nullptr);
    EXPECT_EQ(SO<LODNode>(new LODNode())->levelAt(0.0), nullptr);
}

TEST(LODNode, WhatCannotBeALevelIsReported) {
    const SO<LODNode> lod = twoLevels();
    RecordedReports reports;
    lod->append(nullptr, 200.0);
    EXPECT_EQ(reports.count(0, L"object", L"no object"), 1U) << reports;
    lod->append(nodeOf(lod.get()).get(), 200.0);
    EXPECT_EQ(reports.count(0, L"!closesCycle(object)", L"node would contain itself"), 1U) << reports;
    EXPECT_EQ(lod->lodNodes(), 2U);
    reports.clear();
    lod->append(nodeOf(nullptr).get(), 100.0);
    EXPECT_EQ(reports.count(0, L"grows", L"a level ends where the one before does"), 1U) << reports;
    EXPECT_EQ(lod->lodNodes(), 3U);
}

TEST(LODNode, ItsBoxIsThatOfAllLevels) {
    const SO<LODNode> lod = twoLevels();
    EXPECT_EQ(lod->boundingBox(nullptr), Bounds(V(0, 0, 0), V(2, 2, 2)));
    const SO<SceneThing> scene(new SceneThing());
    scene->append(new Translation(V(5, 0, 0)));
    scene->append(lod.get());
    EXPECT_EQ(scene->boundingBox(nullptr), Bounds(V(5, 0, 0), V(7, 2, 2)));
}

/// The size of the box that is drawn with the eye at the origin of the view; 0 for none.
double drawnSize(SceneNode * node) {
    const SO<Engine> engine(new Engine());
    const SO<CollectedShapes::Technique> technique(new CollectedShapes::Technique());
    engine->evaluate(node, technique.get());
    const auto boxes = technique->all<Box>();
    EXPECT_LE(boxes.size(), 1U);
    return boxes.empty() ? 0.0 : boxes[0]->getBounds().diagonal().x;
}

TEST(LODNode, IsEvaluatedByTheDistanceFromItsCenterInTheScene) {
    const SO<LODNode> lod = twoLevels(V(4, 0, 0));
    EXPECT_EQ(drawnSize(lod.get()), 1.0);
    const SO<SceneThing> scene(new SceneThing());
    const SO<Tf> move(new Translation(V(5.9, 0, 0))), grow(new Scaling(V(2, 2, 2)));
    scene->append(move.get());
    scene->append(lod.get());
    EXPECT_EQ(drawnSize(scene.get()), 1.0) << "9.9 from the eye";
    scene->insert(1, grow.get());
    EXPECT_EQ(drawnSize(scene.get()), 2.0) << "13.9 from the eye";
    move->setMatrix(Matrix4x4Base<double>::translation(V(0, 0, -400)));
    EXPECT_EQ(drawnSize(scene.get()), 0.0);
    move->setEnableState(false);
    lod->setEnableState(false);
    EXPECT_EQ(drawnSize(scene.get()), 0.0);
}

TEST(LODNode, StoredAndReadIsTheSame) {
    const SO<LODNode> copy = storedCopy(*twoLevels(V(1, 2, 3)));
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->getCenter(), V(1, 2, 3));
    ASSERT_EQ(copy->lodNodes(), 2U);
    EXPECT_EQ(copy->getMaxDistance(1), 100.0);
    EXPECT_EQ(copy->getLodNode(1)->boundingBox(nullptr).diagonal(), V(2, 2, 2));
    EXPECT_EQ(storedCopy(*SO<LODNode>(new LODNode()))->lodNodes(), 0U);
}

/// A level that holds something else than nodes, as a damaged file may have it.
TEST(LODNode, DamagedLevelsAreRefused) {
    const SO<LODNode> lod = twoLevels();
    const_cast<SceneThing *>(lod->levels())->append(box(3).get());
    EXPECT_THROW(storedCopy(*lod), IOError);
    const_cast<SceneThing *>(lod->levels())->clear();
    EXPECT_THROW(storedCopy(*lod), IOError);
}

TEST(LODNode, MayBeNestedDeep) {
    const SO<LODNode> root(new LODNode());
    LODNode * last = root.get();
    for (unsigned i = 0; i < 60000; ++i) {
        const SO<LODNode> below(new LODNode());
        last->append(below.get(), 10.0);
        last = below.get();
    }
    last->append(nodeOf(box(1).get()).get(), 10.0);
    const WO<LODNode> watched(last);
    EXPECT_EQ(nodeOf(root.get())->boundingBox(nullptr), Bounds(V(0, 0, 0), V(1, 1, 1)));
    EXPECT_TRUE(watched);
}

TEST(LODNode, AnnouncesChanges) {
    const SO<LODNode> lod(new LODNode());
    const std::uint64_t first = lod->lastTransactionNo();
    lod->setCenter(V(1, 0, 0));
    const std::uint64_t second = lod->lastTransactionNo();
    EXPECT_GT(second, first);
    lod->setCenter(V(1, 0, 0));
    EXPECT_EQ(lod->lastTransactionNo(), second);
    lod->append(nodeOf(nullptr).get(), 1.0);
    EXPECT_GT(lod->lastTransactionNo(), second);
}

} // namespace
