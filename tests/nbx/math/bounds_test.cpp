#include <nbx/math/bounds.h>

#include <gtest/gtest.h>

#include <random>

#include <support/roundtrip.h>

#include <nbx/object/serializationmanager.h>

using NBX::Bounds;
using M = NBX::Matrix4x4Base<double>;
using V = NBX::Vector3Base<double>;

namespace {

const Bounds s_unit(V(0, 0, 0), V(1, 1, 1));

TEST(Bounds, IsUndefinedAtFirst) {
    const Bounds box;
    EXPECT_FALSE(box.isDefined());
    EXPECT_FALSE(box.containsPoint(V()));
    EXPECT_FALSE(box.intersects(s_unit));
    EXPECT_FALSE(s_unit.intersects(box));
    EXPECT_FALSE(box.intersection(s_unit).isDefined());
    EXPECT_FALSE(box.expand(1).isDefined());
    EXPECT_FALSE(box.transform(M::translation(V(1, 2, 3))).isDefined());
}

TEST(Bounds, APointIsABoxWithoutExtent) {
    const Bounds box(V(1, 2, 3));
    EXPECT_TRUE(box.isDefined());
    EXPECT_TRUE(box.containsPoint(V(1, 2, 3)));
    EXPECT_EQ(box.diagonal(), V());
    EXPECT_EQ(box.center(), V(1, 2, 3));
}

TEST(Bounds, CornersComeInAnyOrder) {
    const Bounds box(V(5, -1, 3), V(1, 4, 2));
    EXPECT_EQ(box.getLLF(), V(1, -1, 2));
    EXPECT_EQ(box.getURB(), V(5, 4, 3));
    EXPECT_EQ(box.point(0, 0, 0), box.getLLF());
    EXPECT_EQ(box.point(1, 1, 1), box.getURB());
    EXPECT_EQ(box.point(0.5, 0.5, 0.5), box.center());
}

TEST(Bounds, TouchingCountsAsInside) {
    EXPECT_TRUE(s_unit.containsPoint(V(1, 1, 1)));
    EXPECT_TRUE(s_unit.intersects(Bounds(V(1, 0, 0), V(2, 1, 1))));
    EXPECT_FALSE(s_unit.intersects(Bounds(V(1.001, 0, 0), V(2, 1, 1))));
    EXPECT_EQ(s_unit.intersection(Bounds(V(1, 0, 0), V(2, 1, 1))), Bounds(V(1, 0, 0), V(1, 1, 1)));
}

TEST(Bounds, ContainsInAPlaneLooksAtTwoAxes) {
    EXPECT_TRUE(s_unit.containsPointInPlane(V(0.5, 99, 0.5), 0, 2));
    EXPECT_FALSE(s_unit.containsPointInPlane(V(0.5, 99, 0.5), 0, 1));
    EXPECT_FALSE(Bounds().containsPointInPlane(V(), 0, 2));
}

TEST(Bounds, UnionGrowsAndTakesNoUndefinedBox) {
    Bounds box;
    box += Bounds();
    EXPECT_FALSE(box.isDefined());
    box += V(1, 2, 3);
    EXPECT_EQ(box, Bounds(V(1, 2, 3)));
    box += s_unit;
    EXPECT_EQ(box, Bounds(V(0, 0, 0), V(1, 2, 3)));
    box += Bounds();
    EXPECT_EQ(box, Bounds(V(0, 0, 0), V(1, 2, 3)));
}

TEST(Bounds, UndefinedBoxesAreEqual) {
    EXPECT_TRUE(Bounds() == Bounds());
    EXPECT_TRUE(Bounds() != Bounds(V()));
    EXPECT_TRUE(s_unit != Bounds(V(0, 0, 0), V(1, 1, 2)));
}

TEST(Bounds, NearestPointLiesInTheBox) {
    EXPECT_EQ(s_unit.nearestPoint(V(-5, 0.25, 9)), V(0, 0.25, 1));
    EXPECT_EQ(s_unit.nearestPoint(V(0.1, 0.2, 0.3)), V(0.1, 0.2, 0.3));
}

TEST(Bounds, ExpandGrowsOnEverySide) {
    EXPECT_EQ(s_unit.expand(2), Bounds(V(-2, -2, -2), V(3, 3, 3)));
    EXPECT_EQ(s_unit.expand(-0.25), Bounds(V(0.25, 0.25, 0.25), V(0.75, 0.75, 0.75)));
}

/// Law: every transformed point of the box lies in the transformed box.
TEST(Bounds, TransformKeepsAllPointsInside) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(0, 1), place(-100, 100);
    const auto vector = [&] { return V(place(random), place(random), place(random)); };
    for (int i = 0; i < 2000; ++i) {
        const Bounds box(vector(), vector());
        const M m =
            M::translation(vector()) * M::rotation(vector(), place(random)) * M::scaling(V(2, -1, 0.5));
        const V p = m * box.point(unit(random), unit(random), unit(random));
        EXPECT_TRUE(box.transform(m).expand(1e-9).containsPoint(p));
    }
}

/// Stores a box by its own operation.
class BoxHolder : public NBX::SharedObj {
    NBX_STORED_CLASS(BoxHolder, NBX::SharedObj)
public:
    void serialize(NBX::SerializationManager & m) override {
        m.enterObject();
        NBX::serializeSuperclass<NBX::SharedObj>(m, this);
        box.serialize(m);
    }
    Bounds box;
};
NBX_STORED_CLASS_IMPL(BoxHolder, NBX::SharedObj)

TEST(Bounds, AStoredOneIsReadAsItWas) {
    for (const Bounds & box : {Bounds(), Bounds(V(1, 2, 3)), Bounds(V(-1, 2, 3), V(4, 50, 6))}) {
        SCOPED_TRACE(testing::Message() << "defined: " << box.isDefined());
        const NBX::SO<BoxHolder> holder(new BoxHolder);
        holder->box = box;
        const auto read = roundTrip(holder);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->box.isDefined(), box.isDefined());
        EXPECT_TRUE(read->box == box);
    }
}

} // namespace
