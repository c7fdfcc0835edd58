#include "util/occlusion/cityground.h"

#include <cmath>

#include <gtest/gtest.h>

namespace {

using V = NBX::Vector3Base<double>;

double slope(const ZMT::RASTER::MapPlace & place) {
    return 300.0 + 0.25 * (place.x - 5000.0) + 0.5 * (place.y - 7000.0);
}

TEST(CityGroundTest, LiesInTheFrameOfTheCityFinelyAroundIt) {
    const V origin(5000.0, 300.0, 7000.0);
    const auto corners = ZMT::UTIL::groundOfCity({{-20, -3, 10}, {60, 30, 40}}, origin, slope);
    ASSERT_FALSE(corners.empty());
    double fine = 0.0, least = 0.0, most = 0.0;
    for (std::size_t i = 0; i < corners.size(); i += 3) {
        const V &a = corners[i], &b = corners[i + 1], &c = corners[i + 2];
        ASSERT_NEAR(slope({a.x + 5000.0, a.z + 7000.0}) - 300.0, a.y, 1e-4);
        const double area = std::abs((b.x - a.x) * (c.z - a.z) - (c.x - a.x) * (b.z - a.z)) / 2.0;
        const V middle = (a + b + c) * (1.0 / 3.0);
        const bool isInBox = middle.x > -20 && middle.x < 60 && middle.z > 10 && middle.z < 40;
        if (isInBox && area < 1.0) fine += area;
        least = std::min(least, a.x);
        most = std::max(most, a.z);
    }
    EXPECT_NEAR(80.0 * 30.0, fine, 1e-6);
    EXPECT_LT(least, -250.0);
    EXPECT_GT(most, 250.0);
}

TEST(CityGroundTest, IsNothingWithoutHeightsOrABox) {
    const auto none = [](const ZMT::RASTER::MapPlace &) { return std::nan(""); };
    EXPECT_TRUE(ZMT::UTIL::groundOfCity({{0, 0, 0}, {10, 10, 10}}, {}, none).empty());
    EXPECT_TRUE(ZMT::UTIL::groundOfCity({}, {}, slope).empty());
}

} // namespace
