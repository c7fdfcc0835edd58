#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/slotorder.h>

#include <nbx/scene/shape/box.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

#include "support/testterrain.h"

using NBX::Bounds;
using ZMT::CORE::GeometryData;
using ZMT::CORE::GeometryPatch;
using Children = NBX::Array<NBX::SO<GeometryPatch>>;
using Point = NBX::Vector3Base<double>;

namespace {

/// A patch without data, whose protected parts can be called, and which can write children that it has not,
/// and no box.
class TestPatch : public GeometryPatch {
    NBX_STORED_CLASS(TestPatch, GeometryPatch)
public:
    TestPatch() = default;
    TestPatch(const Bounds & box, double error, double wall,
              const NBX::SO<GeometryPatch::Children> & children)
        : GeometryPatch(box, error, wall, children) {}
    NBX::SO<GeometryData> data() const override { return nullptr; }
    using GeometryPatch::addChild;

    void serialize(NBX::SerializationManager & m) override {
        if (!m.isWriting() || (!writtenChildren_ && !writesNoBox_)) return GeometryPatch::serialize(m);
        Bounds box = writesNoBox_ ? Bounds() : boundingBox();
        double error = approximationError(), lowest = wall();
        m.enterObject();
        NBX::serializeSuperclass<NBX::Shape>(m, this);
        m.attribute("bbox", box);
        m.attribute("error", error);
        m.attribute("wall", lowest);
        m.attribute("children", writtenChildren_);
    }

    NBX::SO<NBX::SharedObj> writtenChildren_;
    bool writesNoBox_ = false;
};
NBX_STORED_CLASS_IMPL(TestPatch, GeometryPatch)

const Bounds s_box(Point(1, 2, 3), Point(4, 5, 6));

NBX::SO<TestPatch> leaf(double error = 0.0) {
    return new TestPatch(s_box, error, -7.0, nullptr);
}

class GeometryPatchTest : public testing::Test {
protected:
    RecordedReports reports_;
};

TEST_F(GeometryPatchTest, KeepsWhatItIsGiven) {
    const NBX::SO<TestPatch> patch(new TestPatch(s_box, 2.5, -7.0, nullptr));
    EXPECT_TRUE(patch->boundingBox() == s_box) << "a fresh box excludes the wall";
    EXPECT_EQ(patch->approximationError(), 2.5);
    EXPECT_EQ(patch->wall(), -7.0);
    EXPECT_EQ(patch->children(), 0U);
    EXPECT_FALSE(patch->parent());
    EXPECT_TRUE(patch->isEnabled());
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GeometryPatchTest, AnUndefinedBoxBecomesTheOrigin) {
    const NBX::SO<TestPatch> patch(new TestPatch(Bounds(), 0.0, 0.0, nullptr));
    EXPECT_TRUE(patch->boundingBox() == Bounds(Point(0, 0, 0)));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GeometryPatchTest, ANegativeErrorIsReported) {
    const NBX::SO<TestPatch> patch(new TestPatch(s_box, -0.5, 0.0, nullptr));
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"approxError >= 0", L"invalid approximation-error: -0.5"), 1U) << reports_;
}

TEST_F(GeometryPatchTest, ChildrenGetTheirParent) {
    const auto a = leaf(), b = leaf();
    const NBX::SO<TestPatch> patch(
        new TestPatch(s_box, 1.0, 0.0, TestTerrain::array<NBX::SO<GeometryPatch>>({a, b})));
    ASSERT_EQ(patch->children(), 2U);
    EXPECT_EQ(patch->child(0), a);
    EXPECT_EQ(patch->child(1), b);
    EXPECT_EQ(a->parent(), patch);
    EXPECT_EQ(b->parent(), patch);
}

TEST_F(GeometryPatchTest, ManyChildrenKeepTheirOrder) {
    const auto patch = leaf();
    for (int i = 0; i < 100; ++i)
        patch->addChild(leaf(i));
    ASSERT_EQ(patch->children(), 100U);
    for (unsigned i = 0; i < 100; ++i)
        EXPECT_EQ(patch->child(i)->approximationError(), i);
}

TEST_F(GeometryPatchTest, TheParentIsOnlyWatched) {
    const auto child = leaf();
    {
        const NBX::SO<TestPatch> patch(
            new TestPatch(s_box, 1.0, 0.0, TestTerrain::array<NBX::SO<GeometryPatch>>({child})));
        EXPECT_EQ(patch->references(), 1);
        EXPECT_EQ(child->references(), 2);
    }
    EXPECT_FALSE(child->parent());
    EXPECT_EQ(child->references(), 1);
}

TEST_F(GeometryPatchTest, AnAbandonedChildMayGetAnotherParent) {
    const auto child = leaf();
    for (int i = 0; i < 2; ++i) {
        const NBX::SO<TestPatch> patch(leaf());
        patch->addChild(child);
        EXPECT_EQ(child->parent(), patch);
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GeometryPatchTest, AChildOfTwoParentsIsReported) {
    const auto child = leaf(), first = leaf(), second = leaf();
    first->addChild(child);
    second->addChild(child);
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"!parent_", L"parent already set"), 1U) << reports_;
}

TEST_F(GeometryPatchTest, ANullChildIsReportedAndLeftOut) {
    const auto patch = leaf();
    patch->addChild(nullptr);
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"child", L"no child"), 1U) << reports_;
    EXPECT_EQ(patch->children(), 0U);
}

TEST_F(GeometryPatchTest, ANumberOutOfRangeIsReported) {
    const auto patch = leaf();
    EXPECT_FALSE(patch->child(0));
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"i < children()", L"i out of range"), 1U) << reports_;
}

TEST_F(GeometryPatchTest, UnloadingKeepsTheChildrenOfTreesInMemory) {
    const auto patch = leaf();
    patch->addChild(leaf());
    patch->unloadChildren();
    EXPECT_EQ(patch->children(), 1U);
}

TEST_F(GeometryPatchTest, ChildrenAreVisited) {
    const auto child = leaf(), patch = leaf();
    patch->addChild(child);
    std::vector<NBX::Visitable *> children;
    patch->acceptChildren(children);
    EXPECT_NE(std::find(children.begin(), children.end(), child.get()), children.end());
}

TEST_F(GeometryPatchTest, StoresBoxErrorWallAndChildren) {
    const auto patch = leaf(1.5), child = leaf(0.25);
    patch->addChild(child);
    child->addChild(leaf(0.0));
    EXPECT_EQ(RecordedAttributes::of(*leaf()),
              (std::vector<std::string>{"bbox", "error", "wall", "children"}));
    const auto read = roundTrip(patch);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->approximationError(), 1.5);
    EXPECT_EQ(read->wall(), -7.0);
    ASSERT_EQ(read->children(), 1U);
    EXPECT_EQ(read->child(0)->approximationError(), 0.25);
    EXPECT_EQ(read->child(0)->parent(), read);
    ASSERT_EQ(read->child(0)->children(), 1U);
    EXPECT_EQ(read->child(0)->child(0)->parent(), read->child(0));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GeometryPatchTest, WritingExtendsTheBoxToTheWall) {
    const auto patch = leaf();
    const Bounds withWall(Point(1, -7, 3), Point(4, 5, 6));
    const auto read = roundTrip(patch);
    EXPECT_TRUE(patch->boundingBox() == withWall) << "in memory";
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->boundingBox() == withWall) << "after reading";
}

TEST_F(GeometryPatchTest, AWallAboveTheBoxExtendsItUp) {
    const NBX::SO<TestPatch> patch(new TestPatch(s_box, 0.0, 50.0, nullptr));
    const auto read = roundTrip(patch);
    EXPECT_TRUE(read->boundingBox() == Bounds(Point(1, 2, 3), Point(4, 50, 6)));
}

TEST_F(GeometryPatchTest, AStoredBoxThatIsUndefinedBecomesTheOriginAndTheWall) {
    const auto patch = leaf();
    patch->writesNoBox_ = true;
    const auto read = roundTrip(patch);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->boundingBox() == Bounds(Point(0, -7, 0), Point(0, 0, 0)));
}

TEST_F(GeometryPatchTest, StoredChildrenThatAreNoPatchesAreLeftOut) {
    const auto patch = leaf(), first = leaf(1.0), last = leaf(2.0);
    const NBX::SO<NBX::SharedObj> box(new NBX::Box);
    patch->writtenChildren_ = new NBX::Array<NBX::SO<GeometryPatch>>({first, nullptr, last});
    const auto withoutNull = roundTrip(patch);
    ASSERT_TRUE(withoutNull);
    ASSERT_EQ(withoutNull->children(), 2U);
    EXPECT_EQ(withoutNull->child(0)->approximationError(), 1.0);
    EXPECT_EQ(withoutNull->child(1)->approximationError(), 2.0);
    EXPECT_EQ(withoutNull->child(1)->parent(), withoutNull);

    patch->writtenChildren_ = box;
    const auto withoutChildren = roundTrip(patch);
    ASSERT_TRUE(withoutChildren);
    EXPECT_EQ(withoutChildren->children(), 0U) << "what is stored there is no list of patches";
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(GeometryPatchTest, ADisabledOneIsReadAsSuch) {
    const auto patch = leaf();
    patch->setEnableState(false);
    const auto read = roundTrip(patch);
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->isEnabled());
}

TEST_F(GeometryPatchTest, StoredCirclesAreRefused) {
    const auto a = leaf(), b = leaf();
    a->writtenChildren_ = new Children({b});
    b->writtenChildren_ = new Children({a});
    EXPECT_THROW(roundTrip(a), NBX::IOError);
    b->writtenChildren_ = nullptr;

    a->writtenChildren_ = new Children({a});
    EXPECT_THROW(roundTrip(a), NBX::IOError);
    a->writtenChildren_ = nullptr;
}

TEST_F(GeometryPatchTest, AStoredChildOfTwoParentsIsRefused) {
    const auto root = leaf(), a = leaf(), b = leaf(), shared = leaf();
    root->addChild(a);
    root->addChild(b);
    a->addChild(shared);
    b->writtenChildren_ = new Children({shared});
    EXPECT_THROW(roundTrip(root), NBX::IOError);
}

TEST_F(GeometryPatchTest, OperationsKeepTheirOrder) {
    EXPECT_TRUE(inSlotOrder(&NBX::Shape::boundingBox, &GeometryPatch::data,
                            &GeometryPatch::approximationError, &GeometryPatch::wall, &GeometryPatch::parent,
                            &GeometryPatch::children, &GeometryPatch::child, &GeometryPatch::unloadChildren));
}

} // namespace
