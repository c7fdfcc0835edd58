#include <nbx/scene/attribute/attribute.h>

#include <gtest/gtest.h>

#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/view/scaling.h>
#include <nbx/scene/view/translation.h>
#include <nbx/scene/view/viewport.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;

TEST(Attribute, CategoryIsTheClassNameUnlessAClassSaysOtherwise) {
    EXPECT_EQ(SO<Attribute>(new Viewport(Area()))->category(), Viewport::ClassNameNBX());
    EXPECT_EQ(SO<Attribute>(new Translation())->category(), Tf::ClassNameNBX());
    EXPECT_FALSE(SO<Attribute>(new Tf())->isPassEffect());
}

TEST(ContextData, IsFoundUnderItsName) {
    const SO<ContextData<bool>> flag(new ContextData<bool>("MotionFlag", true));
    EXPECT_EQ(flag->category(), ID("MotionFlag"));
    EXPECT_TRUE(flag->getValue());
    EXPECT_TRUE(flag->isEnabled());
    const auto before = flag->lastTransactionNo();
    flag->setValue(true);
    EXPECT_EQ(flag->lastTransactionNo(), before);
    flag->setValue(false);
    EXPECT_FALSE(flag->getValue());
    EXPECT_GT(flag->lastTransactionNo(), before);
    // Values of different types are different classes.
    const SO<Attribute> other(new ContextData<int>("MotionFlag", 1));
    EXPECT_FALSE(soCast<ContextData<bool>>(other));
}

TEST(RenderObj, EnableStateIsStored) {
    const SO<Scaling> scaling(new Scaling({1, 2, 3}));
    scaling->setEnableState(false);
    const SO<Scaling> copy = storedCopy(*scaling);
    ASSERT_TRUE(copy);
    EXPECT_FALSE(copy->isEnabled());
    EXPECT_EQ(copy->getFactors(), (Vector3Base<double>(1, 2, 3)));
}

} // namespace
