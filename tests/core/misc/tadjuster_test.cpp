#include <gtest/gtest.h>

#include <limits>
#include <random>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>

#include <nbx/engine/engine.h>
#include <nbx/engine/shapepainter.h>
#include <zmt/core/misc/tadjuster.h>

using NBX::Bounds;
using NBX::Box;
using ZMT::CORE::TAdjuster;
using Matrix = NBX::Matrix4x4Base<double>;
using Names = std::vector<std::string>;
using Point = NBX::Vector3Base<double>;

namespace {

/// A box whose model matrix at painting is noted.
class NotedBox : public Box {
    NBX_TEMPLATE_CLASS(NotedBox, Box)
public:
    using Box::Box;
    mutable std::vector<Matrix> paintedUnder;
};

class NotedBoxPainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(NotedBoxPainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return NotedBox::ClassNameNBX(); }
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override {
        static_cast<const NotedBox *>(shape)->paintedUnder.push_back(engine->modelMatrix());
        return true;
    }
};

void expectNear(const Bounds & a, const Bounds & b) {
    ASSERT_EQ(a.isDefined(), b.isDefined());
    for (unsigned axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(a.getLLF()[axis], b.getLLF()[axis], 1e-9);
        EXPECT_NEAR(a.getURB()[axis], b.getURB()[axis], 1e-9);
    }
}

class TAdjusterTest : public testing::Test {
protected:
    static void SetUpTestSuite() { NBX::Engine::registerHandler(new NotedBoxPainter); }

    /// A node that fits a box from the origin to `size` into `volume_`.
    NBX::SO<TAdjuster> fitted(const Point & size, bool keepAspect, bool dynamic = false) {
        NBX::SO<TAdjuster> node(new TAdjuster(nullptr, volume_.get(), keepAspect, dynamic));
        content_ = new NotedBox(Point(), size);
        node->append(content_.get());
        return node;
    }

    RecordedReports reports_;
    NBX::SO<NBX::Engine> engine_ = new NBX::Engine;
    /// 10 by 20 by 40 about (5, 10, 20).
    NBX::SO<Box> volume_ = new Box(Point(0, 0, 0), Point(10, 20, 40));
    NBX::SO<NotedBox> content_;
};

TEST_F(TAdjusterTest, KeepsWhatItIsGiven) {
    const NBX::SO<NBX::SceneThing> parent(new NBX::SceneThing);
    const NBX::SO<TAdjuster> node(new TAdjuster(parent.get(), volume_.get(), false, true));
    EXPECT_TRUE(parent->contains(node.get()));
    EXPECT_EQ(node->getVolume(), volume_);
    EXPECT_FALSE(node->getKeepAspect());
    EXPECT_TRUE(node->getDynamics());
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(TAdjusterTest, NoVolumeIsReported) {
    const NBX::SO<TAdjuster> node(new TAdjuster(nullptr, nullptr, true, false));
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(0, L"volume_", L"no volume"), 1U) << reports_;
}

TEST_F(TAdjusterTest, NoTargetBoxIsReportedAndTaken) {
    const auto node = fitted(Point(1, 1, 1), true);
    node->setVolume(nullptr);
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.count(L"no target box"), 1U) << reports_;
    EXPECT_EQ(reports_[0].level, 0);
    EXPECT_FALSE(node->getVolume());
    expectNear(node->boundingBox(engine_.get()), Bounds(Point(), Point(1, 1, 1)));
}

TEST_F(TAdjusterTest, AnUndefinedTargetLeavesTheContentAsItIs) {
    volume_ = new Box(Bounds());
    expectNear(fitted(Point(1, 2, 3), true)->boundingBox(engine_.get()), Bounds(Point(), Point(1, 2, 3)));
}

TEST_F(TAdjusterTest, NoEngineIsReported) {
    const auto node = fitted(Point(1, 1, 1), true);
    node->boundingBox(nullptr);
    EXPECT_EQ(reports_.count(0, L"engine", L"no engine"), 1U) << reports_;
    node->boundingBox(nullptr);
    EXPECT_EQ(reports_.count(0, L"engine", L"no engine"), 2U) << reports_;
    EXPECT_EQ(reports_.size(), 2U) << reports_;
    node->modified();
    node->evaluate(nullptr);
    EXPECT_EQ(reports_.count(0, L"engine", L"no engine"), 3U) << reports_;
}

TEST_F(TAdjusterTest, WithAspectTheSmallestScaleHolds) {
    const auto node = fitted(Point(5, 5, 5), true);
    expectNear(node->boundingBox(engine_.get()), Bounds(Point(0, 5, 15), Point(10, 15, 25)));
}

TEST_F(TAdjusterTest, WithoutAspectOnlyTheVerticalScaleIsTheSmallest) {
    const auto node = fitted(Point(5, 5, 5), false);
    expectNear(node->boundingBox(engine_.get()), Bounds(Point(0, 5, 0), Point(10, 15, 40)));
}

TEST_F(TAdjusterTest, TheVerticalScaleCountsForTheSmallest) {
    expectNear(fitted(Point(1, 40, 1), false)->boundingBox(engine_.get()),
               Bounds(Point(0, 0, 0), Point(10, 20, 40)));
    expectNear(fitted(Point(1, 40, 1), true)->boundingBox(engine_.get()),
               Bounds(Point(4.75, 0, 19.75), Point(5.25, 20, 20.25)));
}

TEST_F(TAdjusterTest, FlatContentTakesTheScaleOfTheOtherAxes) {
    expectNear(fitted(Point(5, 0, 5), false)->boundingBox(engine_.get()),
               Bounds(Point(0, 10, 0), Point(10, 10, 40)));
    expectNear(fitted(Point(5, 0, 5), true)->boundingBox(engine_.get()),
               Bounds(Point(0, 10, 15), Point(10, 10, 25)));
    expectNear(fitted(Point(0, 5, 5), true)->boundingBox(engine_.get()),
               Bounds(Point(5, 0, 10), Point(5, 20, 30)));
}

TEST_F(TAdjusterTest, AFlatSideWithoutAspectGetsTheLargestScale) {
    const auto node = fitted(Point(0, 5, 5), false);
    node->evaluate(engine_.get());
    ASSERT_EQ(content_->paintedUnder.size(), 1U);
    EXPECT_EQ(content_->paintedUnder[0](0, 0), std::numeric_limits<double>::max());
    EXPECT_EQ(content_->paintedUnder[0](1, 1), 4.0);
    EXPECT_EQ(content_->paintedUnder[0](2, 2), 8.0);
}

TEST_F(TAdjusterTest, ContentOfNothingIsUndefinedAndUntouched) {
    const NBX::SO<TAdjuster> node(new TAdjuster(nullptr, volume_.get(), true, false));
    EXPECT_FALSE(node->boundingBox(engine_.get()).isDefined());
    node->evaluate(engine_.get());
    EXPECT_EQ(engine_->modelMatrix(), Matrix());
}

TEST_F(TAdjusterTest, ContentThatGoesTakesItsFitAlong) {
    const auto node = fitted(Point(5, 5, 5), true);
    EXPECT_TRUE(node->boundingBox(engine_.get()).isDefined());
    node->clear();
    EXPECT_FALSE(node->boundingBox(engine_.get()).isDefined());
    const NBX::SO<NotedBox> boundless(new NotedBox(Bounds()));
    node->append(boundless.get());
    node->evaluate(engine_.get());
    EXPECT_EQ(boundless->paintedUnder, std::vector<Matrix>{Matrix()});
    EXPECT_FALSE(node->boundingBox(engine_.get()).isDefined());
}

TEST_F(TAdjusterTest, ATargetThatGoesTakesTheFitAlong) {
    const auto node = fitted(Point(5, 5, 5), true);
    EXPECT_TRUE(node->boundingBox(engine_.get()).isDefined());
    node->setVolume(new Box(Bounds()));
    expectNear(node->boundingBox(engine_.get()), Bounds(Point(), Point(5, 5, 5)));
    node->evaluate(engine_.get());
    EXPECT_EQ(content_->paintedUnder, std::vector<Matrix>{Matrix()});
}

TEST_F(TAdjusterTest, PaintsItsContentUnderTheFit) {
    const auto node = fitted(Point(5, 5, 5), true);
    engine_->pushModelMatrix(Matrix::translation(Point(100, 0, 0)));
    node->evaluate(engine_.get());
    EXPECT_EQ(engine_->modelMatrix(), Matrix::translation(Point(100, 0, 0)));
    engine_->popModelMatrix();
    ASSERT_EQ(content_->paintedUnder.size(), 1U);
    EXPECT_EQ(content_->paintedUnder[0] * Point(0, 0, 0), Point(100, 5, 15));
    EXPECT_EQ(content_->paintedUnder[0] * Point(5, 5, 5), Point(110, 15, 25));
}

TEST_F(TAdjusterTest, ContentThatThrowsLeavesTheModelMatrixAsItWas) {
    class Throwing : public NBX::SceneNode {
    public:
        void evaluate(NBX::Engine *) override { throw NBX::IOError(L"out of order"); }
        Bounds boundingBox(NBX::Engine *) override { return {}; }
    };
    const auto node = fitted(Point(5, 5, 5), true);
    node->append(new Throwing);
    EXPECT_THROW(node->evaluate(engine_.get()), NBX::IOError);
    EXPECT_EQ(engine_->modelMatrix(), Matrix());
}

TEST_F(TAdjusterTest, EvaluatesOnlyInAStateThatRenders) {
    const auto node = fitted(Point(5, 5, 5), true);
    node->setNodeState(NBX::SceneNode::NS_Bounds);
    node->evaluate(engine_.get());
    EXPECT_TRUE(content_->paintedUnder.empty());
    node->setNodeState(NBX::SceneNode::NS_Renders);
    node->evaluate(engine_.get());
    EXPECT_EQ(content_->paintedUnder.size(), 1U);
}

TEST_F(TAdjusterTest, FitsAgainWhenItWasModified) {
    const auto node = fitted(Point(5, 5, 5), true);
    const Bounds before = node->boundingBox(engine_.get());
    content_->setBounds(Bounds(Point(), Point(1, 2, 4)));
    expectNear(node->boundingBox(engine_.get()), before);
    node->modified();
    expectNear(node->boundingBox(engine_.get()), Bounds(Point(0, 0, 0), Point(10, 20, 40)));
}

TEST_F(TAdjusterTest, FitsContentThatComesLater) {
    const NBX::SO<TAdjuster> node(new TAdjuster(nullptr, volume_.get(), true, false));
    const NBX::SO<NBX::SceneThing> below(new NBX::SceneThing(node.get()));
    EXPECT_FALSE(node->boundingBox(engine_.get()).isDefined());
    below->append(new Box(Point(), Point(5, 5, 5)));
    expectNear(node->boundingBox(engine_.get()), Bounds(Point(0, 5, 15), Point(10, 15, 25)));
}

TEST_F(TAdjusterTest, VisitorsDoNotMeetTheTargetBox) {
    const auto node = fitted(Point(5, 5, 5), true);
    std::vector<NBX::Visitable *> children;
    node->acceptChildren(children);
    EXPECT_EQ(children, (std::vector<NBX::Visitable *>{content_.get()}));
}

TEST_F(TAdjusterTest, WithDynamicsFitsAgainEveryTime) {
    const auto node = fitted(Point(5, 5, 5), true, true);
    node->boundingBox(engine_.get());
    content_->setBounds(Bounds(Point(), Point(1, 2, 4)));
    expectNear(node->boundingBox(engine_.get()), Bounds(Point(0, 0, 0), Point(10, 20, 40)));
}

TEST_F(TAdjusterTest, OnlyOtherValuesAreChanges) {
    const auto node = fitted(Point(5, 5, 5), true);
    auto before = node->lastTransactionNo();
    node->setVolume(volume_.get());
    node->setKeepAspect(true);
    node->setDynamics(false);
    EXPECT_EQ(node->lastTransactionNo(), before);

    const auto changed = [&] {
        const bool result = node->lastTransactionNo() > before;
        before = node->lastTransactionNo();
        return result;
    };
    expectNear(node->boundingBox(engine_.get()), Bounds(Point(0, 5, 15), Point(10, 15, 25)));
    node->setKeepAspect(false);
    EXPECT_TRUE(changed());
    expectNear(node->boundingBox(engine_.get()), Bounds(Point(0, 5, 0), Point(10, 15, 40)));
    const NBX::SO<Box> other(new Box(Point(), Point(5, 5, 5)));
    node->setVolume(other.get());
    EXPECT_TRUE(changed());
    expectNear(node->boundingBox(engine_.get()), Bounds(Point(), Point(5, 5, 5)));
    node->setDynamics(true);
    EXPECT_TRUE(changed());
}

TEST_F(TAdjusterTest, TheContentFillsTheBoxInOneAxisAndFitsInAll) {
    constexpr unsigned seed = 3;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> position(-1e3, 1e3), size(0.01, 100.0);
    for (int i = 0; i < 500; ++i) {
        const Point corner(position(random), position(random), position(random));
        const Bounds target(corner, corner + Point(size(random), size(random), size(random)));
        volume_ = new Box(target);
        const bool keepAspect = i % 2 == 0;
        const auto node = fitted(Point(size(random), size(random), size(random)), keepAspect);
        const Bounds box = node->boundingBox(engine_.get());
        unsigned filled = 0;
        for (unsigned axis = 0; axis < 3; ++axis) {
            const double free = target.diagonal()[axis] - box.diagonal()[axis];
            ASSERT_GE(free, -1e-8);
            ASSERT_NEAR(box.center()[axis], target.center()[axis], 1e-8);
            filled += free < 1e-8;
        }
        ASSERT_GE(filled, keepAspect ? 1U : 2U);
    }
}

TEST_F(TAdjusterTest, StoresBoxAspectAndDynamics) {
    const auto node = fitted(Point(5, 5, 5), false, true);
    EXPECT_EQ(RecordedAttributes::of(*node), (Names{"volume", "keepAspect", "dynamic"}));
    EXPECT_EQ(RecordedAttributes::of(*fitted(Point(5, 5, 5), true), true), (Names{"volume"}));

    const NBX::SO<TAdjuster> written(new TAdjuster(nullptr, volume_.get(), false, true));
    written->append(NBX::SO<Box>(new Box(Point(), Point(5, 5, 5))).get());
    const auto read = roundTrip(written);
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->getKeepAspect());
    EXPECT_TRUE(read->getDynamics());
    ASSERT_TRUE(read->getVolume());
    EXPECT_EQ(read->objects(), 1U);
    expectNear(read->boundingBox(engine_.get()), written->boundingBox(engine_.get()));

    const NBX::SO<TAdjuster> made(static_cast<TAdjuster *>(TAdjuster::newInstance()));
    EXPECT_FALSE(made->getVolume());
    EXPECT_TRUE(made->getKeepAspect());
    EXPECT_FALSE(made->getDynamics());
}

} // namespace
