#include <nbx/math/area.h>

#include <gtest/gtest.h>

namespace {

TEST(Area, HoldsPlaceAndSize) {
    NBX::Area area(-1, 2, 3, 4);
    EXPECT_EQ(area.getX(), -1);
    EXPECT_EQ(area.getY(), 2);
    EXPECT_EQ(area.getWidth(), 3U);
    EXPECT_EQ(area.getHeight(), 4U);
    area.setX(5), area.setY(6), area.setWidth(7), area.setHeight(8);
    EXPECT_EQ(area, NBX::Area(5, 6, 7, 8));
    EXPECT_EQ(NBX::Area(), NBX::Area(0, 0, 0, 0));
}

} // namespace
