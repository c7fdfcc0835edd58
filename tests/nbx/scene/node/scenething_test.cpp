#include <nbx/scene/node/scenething.h>

#include <gtest/gtest.h>

#include <nbx/data/objectstreamreader.h>
#include <nbx/object/exception.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/scaling.h>
#include <nbx/scene/view/translation.h>
#include <support/recordedreports.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;

struct SceneThingTest : testing::Test {
    SO<SceneThing> thing{new SceneThing()};
    SO<Box> a{new Box(V(0, 0, 0), V(1, 1, 1))};
    SO<Box> b{new Box(V(2, 0, 0), V(3, 1, 1))};
    SO<Box> c{new Box(V(0, 5, 0), V(1, 6, 1))};
    RecordedReports reports;

    std::vector<RenderObj *> content() const {
        std::vector<RenderObj *> result;
        for (unsigned i = 0; i < thing->objects(); ++i)
            result.push_back(thing->object(i));
        return result;
    }
    using Objects = std::vector<RenderObj *>;
};

TEST_F(SceneThingTest, KeepsItsObjectsInOrder) {
    thing->append(b.get());
    thing->prepend(a.get());
    thing->insert(1, c.get());
    EXPECT_EQ(content(), (Objects{a.get(), c.get(), b.get()}));
    EXPECT_EQ(thing->find(c.get()), 1);
    EXPECT_TRUE(thing->contains(b.get()));
    EXPECT_TRUE(thing->replace(c.get(), thing->object(2)));
    EXPECT_EQ(content(), (Objects{a.get(), b.get(), b.get()}));
    EXPECT_FALSE(thing->contains(c.get()));
    EXPECT_EQ(thing->find(c.get()), -1);
    EXPECT_TRUE(thing->remove(b.get()));
    EXPECT_EQ(content(), (Objects{a.get(), b.get()}));
    EXPECT_FALSE(thing->remove(c.get()));
    EXPECT_FALSE(thing->replace(c.get(), a.get()));
    thing->clear();
    EXPECT_EQ(thing->objects(), 0U);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(SceneThingTest, KeepsObjectsAliveAndLetsThemGo) {
    EXPECT_EQ(a->references(), 1);
    thing->append(a.get());
    EXPECT_EQ(a->references(), 2);
    thing->replace(a.get(), b.get());
    EXPECT_EQ(a->references(), 1);
    EXPECT_EQ(b->references(), 2);
}

TEST_F(SceneThingTest, AppendsItselfToItsParent) {
    auto * child = new SceneThing(thing.get());
    EXPECT_EQ(child->references(), 1);
    thing->prepend(a.get());
    EXPECT_EQ(thing->childNodes(), 1U);
    EXPECT_EQ(thing->childNode(0), child);
    EXPECT_EQ(thing->objects(), 2U);
}

TEST_F(SceneThingTest, ChangesAreNoted) {
    const auto before = thing->lastTransactionNo();
    thing->append(a.get());
    const auto appended = thing->lastTransactionNo();
    EXPECT_GT(appended, before);
    thing->remove(b.get());
    EXPECT_EQ(thing->lastTransactionNo(), appended);
}

TEST_F(SceneThingTest, WrongCallsAreReported) {
    thing->append(nullptr);
    EXPECT_EQ(reports.count(0, L"object", L"no object"), 1U);
    thing->insert(5, a.get());
    EXPECT_EQ(reports.count(L"i out of range"), 1U);
    EXPECT_EQ(content(), Objects{a.get()});
    EXPECT_EQ(thing->object(1), nullptr);
    EXPECT_EQ(thing->childNode(0), nullptr);
    EXPECT_EQ(reports.size(), 4U) << reports;
}

TEST_F(SceneThingTest, CannotComeToStandBelowItself) {
    const SO<SceneThing> child(new SceneThing(thing.get())), grandchild(new SceneThing(child.get()));
    grandchild->append(thing.get());
    thing->append(thing.get());
    EXPECT_FALSE(child->replace(grandchild.get(), thing.get()));
    EXPECT_EQ(grandchild->objects(), 0U);
    EXPECT_EQ(reports.count(0, L"!closesCycle(object)", L"node would contain itself"), 3U);
    // A node may hang below several others.
    thing->append(grandchild.get());
    EXPECT_EQ(thing->childNodes(), 2U);
}

TEST_F(SceneThingTest, BoxIsThatOfTheContentUnderItsTransformations) {
    EXPECT_FALSE(thing->boundingBox(nullptr).isDefined());
    thing->append(a.get());
    thing->append(new Translation(V(10, 0, 0)));
    thing->append(new Scaling(V(2, 2, 2)));
    thing->append(b.get());
    EXPECT_EQ(thing->boundingBox(nullptr), Bounds(V(0, 0, 0), V(16, 2, 2)));
    const SO<SceneThing> child(new SceneThing(thing.get()));
    child->append(c.get());
    EXPECT_EQ(thing->boundingBox(nullptr), Bounds(V(0, 0, 0), V(16, 12, 2)));
    child->setNodeState(SceneNode::NS_Renders);
    EXPECT_EQ(thing->boundingBox(nullptr), Bounds(V(0, 0, 0), V(16, 2, 2)));
    b->setEnableState(false);
    EXPECT_EQ(thing->boundingBox(nullptr), Bounds(V(0, 0, 0), V(1, 1, 1)));
}

TEST_F(SceneThingTest, TraverseMeetsAllObjectsInOrderUntilItIsEnded) {
    const SO<SceneThing> child(new SceneThing());
    thing->append(a.get());
    thing->append(new Translation(V(1, 2, 3)));
    thing->append(child.get());
    child->append(b.get());
    thing->append(c.get());
    Objects met;
    V whereB;
    EXPECT_TRUE(thing->traverse([&](RenderObj * object, const Matrix4x4Base<double> & matrix) {
        met.push_back(object);
        if (object == b.get()) whereB = matrix * V();
        return true;
    }));
    EXPECT_EQ(met, (Objects{a.get(), thing->object(1), child.get(), b.get(), c.get()}));
    EXPECT_EQ(whereB, V(1, 2, 3));
    met.clear();
    EXPECT_FALSE(thing->traverse([&](RenderObj * object, const Matrix4x4Base<double> &) {
        met.push_back(object);
        return object != b.get();
    }));
    EXPECT_EQ(met.size(), 4U);
}

TEST_F(SceneThingTest, StoredAndReadIsTheSame) {
    thing->append(new Translation(V(1, 2, 3)));
    thing->append(a.get());
    auto * child = new SceneThing(thing.get());
    child->append(a.get());
    child->setNodeState(SceneNode::NS_Bounds);
    child->setEnableState(false);
    const SO<SceneThing> copy = storedCopy(*thing);
    ASSERT_TRUE(copy);
    ASSERT_EQ(copy->objects(), 3U);
    auto * translation = dynamic_cast<Translation *>(copy->object(0));
    ASSERT_TRUE(translation);
    EXPECT_EQ(translation->getOffset(), V(1, 2, 3));
    auto * box = dynamic_cast<Box *>(copy->object(1));
    ASSERT_TRUE(box);
    EXPECT_EQ(box->getBounds(), a->getBounds());
    auto * below = dynamic_cast<SceneThing *>(copy->object(2));
    ASSERT_TRUE(below);
    EXPECT_EQ(below->object(0), box);
    EXPECT_EQ(below->getNodeState(), unsigned(SceneNode::NS_Bounds));
    EXPECT_FALSE(below->isEnabled());
}

TEST_F(SceneThingTest, IsRewrittenObjectByObject) {
    thing->append(a.get());
    thing->append(b.get());
    thing->append(a.get());
    const std::uint64_t before = thing->lastTransactionNo();
    thing->rewrite([](RenderObj * object) { return SO<RenderObj>(object); });
    EXPECT_EQ(thing->lastTransactionNo(), before) << "nothing changed";
    const SO<SceneThing> around(new SceneThing), other(new SceneThing);
    around->append(thing.get());
    unsigned number = 0;
    thing->rewrite([&](RenderObj * object) {
        const SO<RenderObj> results[] = {other, SO<RenderObj>(object), nullptr};
        return results[number++];
    });
    EXPECT_GT(thing->lastTransactionNo(), before);
    ASSERT_EQ(thing->objects(), 2U);
    EXPECT_EQ(thing->object(0), other.get());
    EXPECT_EQ(thing->object(1), b.get());
    RecordedReports reports;
    thing->rewrite([&](RenderObj *) { return SO<RenderObj>(around); });
    EXPECT_EQ(reports.count(0, L"!closesCycle(object)", L"node would contain itself"), 2U) << reports;
    EXPECT_EQ(thing->objects(), 0U);
}

/// Counts how often somebody asks what is below it.
class CountedShape : public Shape {
public:
    CountedShape() : Shape(true) {}
    void acceptChildren(std::vector<Visitable *> & children) const override {
        ++asked;
        Shape::acceptChildren(children);
    }
    mutable unsigned asked = 0;
};

/// Terrains are shapes with hundreds of thousands of objects below them, of which none is a node.
TEST_F(SceneThingTest, CirclesAreLookedForAmongNodesAlone) {
    const SO<CountedShape> shape(new CountedShape);
    const SO<SceneThing> below(new SceneThing);
    below->append(shape.get());
    thing->append(below.get());
    EXPECT_EQ(shape->asked, 0U);
}

TEST_F(SceneThingTest, DamagedStreamsAreRefusedOrGiveASoundTree) {
    thing->append(a.get());
    (new SceneThing(thing.get()))->append(b.get());
    const std::vector<std::uint8_t> bytes = ObjectStreamWriter::write(*thing);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        for (const int change : {1, 0x80, 0xff}) {
            std::vector<std::uint8_t> damaged = bytes;
            damaged[i] = static_cast<std::uint8_t>(damaged[i] ^ change);
            try {
                ObjectStreamReader reader(damaged.data(), damaged.size());
                const SO<SharedObj> read = reader.read();
                if (auto * scene = dynamic_cast<SceneThing *>(read.get())) scene->boundingBox(nullptr);
            } catch (const Exception &) {
            }
        }
}

} // namespace
