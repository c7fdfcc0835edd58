#include <gtest/gtest.h>

#include "core/terrain/geometry/base/geometrydataindexiterator.h"

#include "support/testterrain.h"

using ZMT::CORE::GeometryData_IndexIterator;

namespace {

TEST(GeometryDataIndexIterator, CountsFromZero) {
    EXPECT_EQ(TestTerrain::taken<unsigned>(new GeometryData_IndexIterator(4)),
              (std::vector<unsigned>{0, 1, 2, 3}));
    EXPECT_TRUE(TestTerrain::taken<unsigned>(new GeometryData_IndexIterator(0)).empty());
}

TEST(GeometryDataIndexIterator, HasNoStorage) {
    const NBX::SO<GeometryData_IndexIterator> all(new GeometryData_IndexIterator(4000000000U));
    EXPECT_EQ(all->size(), 4000000000U);
    EXPECT_EQ(all->get(3999999999U), 3999999999U);
    EXPECT_EQ(all->pointer(), nullptr);
    EXPECT_EQ(all->container(), nullptr);
}

} // namespace
