#include <zmt/raster/vector/vectorline.h>

#include <limits>

#include <gtest/gtest.h>

namespace {

using ZMT::RASTER::GeoExtent;
using ZMT::RASTER::VectorLine;

TEST(VectorLineTest, TheWayIsClippedToTheExtent) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const GeoExtent extent{10.0, 20.0, 20.0, 40.0};
    using Part = std::optional<std::pair<double, double>>;
    const struct {
        const char * name;
        VectorLine::Point a, b;
        Part expected;
    } cases[] = {{"inside", {11, 0, 21}, {19, 0, 39}, Part({0.0, 1.0})},
                 {"through", {0, 0, 30}, {40, 0, 30}, Part({0.25, 0.5})},
                 {"backwards", {40, 0, 30}, {0, 0, 30}, Part({0.5, 0.75})},
                 {"enters", {15, 0, 0}, {15, 0, 40}, Part({0.5, 1.0})},
                 {"leaves", {15, 0, 30}, {15, 0, 50}, Part({0.0, 0.5})},
                 {"on the border", {10, 0, 25}, {10, 0, 30}, Part({0.0, 1.0})},
                 {"touches a corner", {5, 0, 25}, {15, 0, 15}, Part({0.5, 0.5})},
                 {"beside", {0, 0, 25}, {9, 0, 30}, std::nullopt},
                 {"past a corner", {5, 0, 22}, {15, 0, 12}, std::nullopt},
                 {"point inside", {15, 0, 25}, {15, 0, 25}, Part({0.0, 1.0})},
                 {"point outside", {5, 0, 25}, {5, 0, 25}, std::nullopt},
                 {"no number", {nan, 0, 25}, {15, 0, 25}, std::nullopt},
                 {"infinite", {15, 0, 25}, {infinity, 0, 25}, Part({0.0, 0.0})}};
    for (const auto & c : cases)
        EXPECT_EQ(VectorLine::clip(extent, c.a, c.b), c.expected) << c.name;
}

} // namespace
