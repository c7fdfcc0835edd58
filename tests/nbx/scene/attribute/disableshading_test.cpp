#include <nbx/scene/attribute/disableshading.h>

#include <gtest/gtest.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;

TEST(DisableShading, HoldsFromTheStart) {
    const SO<DisableShading> attribute(new DisableShading);
    EXPECT_TRUE(attribute->isEnabled());
    EXPECT_EQ(DisableShading::ClassNameNBX(), attribute->category());
}

TEST(DisableShading, IsStored) {
    const SO<DisableShading> attribute(new DisableShading);
    attribute->setEnableState(false);
    const SO<DisableShading> copy = storedCopy(*attribute);
    ASSERT_TRUE(copy);
    EXPECT_FALSE(copy->isEnabled());
}

} // namespace
