#include <nbx/scene/shape/composite.h>

#include <gtest/gtest.h>

#include <nbx/scene/shape/box.h>
#include <support/recordedreports.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;

struct CompositeTest : testing::Test {
    SO<Composite> composite{new Composite()};
    SO<Box> a{new Box(V(0, 0, 0), V(1, 1, 1))};
    SO<Box> b{new Box(V(2, 0, 0), V(3, 1, 1))};
    RecordedReports reports;
};

TEST_F(CompositeTest, HoldsItsMembersInOrder) {
    composite->append(b.get());
    composite->append(a.get());
    ASSERT_EQ(composite->shapes(), 2U);
    EXPECT_EQ(composite->shape(0), b.get());
    EXPECT_EQ(composite->shape(1), a.get());
    EXPECT_TRUE(composite->remove(b.get()));
    EXPECT_FALSE(composite->remove(b.get()));
    composite->clear();
    EXPECT_EQ(composite->shapes(), 0U);
    EXPECT_EQ(a->references(), 1);
}

TEST_F(CompositeTest, BoxIsThatOfTheEnabledMembers) {
    EXPECT_FALSE(composite->boundingBox().isDefined());
    composite->append(a.get());
    composite->append(b.get());
    EXPECT_EQ(composite->boundingBox(), Bounds(V(0, 0, 0), V(3, 1, 1)));
    b->setEnableState(false);
    EXPECT_EQ(composite->boundingBox(), a->getBounds());
}

TEST_F(CompositeTest, RefusesNullAndItself) {
    composite->append(nullptr);
    EXPECT_EQ(reports.count(0, L"shape", L"no shape"), 1U);
    const SO<Composite> inner(new Composite());
    composite->append(inner.get());
    inner->append(composite.get());
    composite->append(composite.get());
    EXPECT_EQ(reports.count(L"composite would contain itself"), 2U);
    EXPECT_EQ(inner->shapes(), 0U);
    EXPECT_EQ(composite->shape(7), nullptr);
}

TEST_F(CompositeTest, StoredAndReadIsTheSame) {
    composite->append(a.get());
    composite->append(a.get());
    const SO<Composite> copy = storedCopy(*composite);
    ASSERT_TRUE(copy);
    ASSERT_EQ(copy->shapes(), 2U);
    EXPECT_EQ(copy->shape(0), copy->shape(1));
    EXPECT_EQ(copy->boundingBox(), composite->boundingBox());
}

} // namespace
