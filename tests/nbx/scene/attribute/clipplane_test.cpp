#include <nbx/scene/attribute/clipplane.h>

#include <gtest/gtest.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;

TEST(ClipPlane, CutsNothingAwayAtFirst) {
    const SO<ClipPlane> plane(new ClipPlane);
    EXPECT_EQ(Vector3Base<double>(), plane->getNormal());
    EXPECT_EQ(0.0, plane->getDistance());
    EXPECT_TRUE(plane->isEnabled());
    EXPECT_EQ(ClipPlane::ClassNameNBX(), plane->category());
}

TEST(ClipPlane, ANewPlaneIsAModification) {
    const SO<ClipPlane> plane(new ClipPlane({1, 0, 0}, 2.0));
    const auto before = plane->lastTransactionNo();
    plane->setPlane({1, 0, 0}, 2.0);
    EXPECT_EQ(before, plane->lastTransactionNo());
    plane->setPlane({1, 0, 0}, 3.0);
    EXPECT_NE(before, plane->lastTransactionNo());
}

TEST(ClipPlane, IsStored) {
    const SO<ClipPlane> plane(new ClipPlane({1, 2, 3}, -4.0));
    const SO<ClipPlane> copy = storedCopy(*plane);
    ASSERT_TRUE(copy);
    EXPECT_EQ(plane->getNormal(), copy->getNormal());
    EXPECT_EQ(plane->getDistance(), copy->getDistance());
}

} // namespace
