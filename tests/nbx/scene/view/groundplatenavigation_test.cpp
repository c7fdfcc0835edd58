#include <nbx/scene/view/groundplatenavigation.h>

#include <cmath>
#include <numbers>
#include <random>

#include <gtest/gtest.h>

namespace {

using namespace NBX;
using V = Vector3Base<double>;

struct Row {
    const char * name;
    V offset;
    double azimuth, elevation, distance;
};

TEST(GroundPlateNavigation, AnglesAreThoseOfACompass) {
    const double root2 = std::sqrt(2.0), root3 = std::sqrt(3.0);
    const Row rows[] = {
        {"north", V(0, 0, 2), 0, 0, 2},
        {"east", V(3, 0, 0), 90, 0, 3},
        {"west", V(-3, 0, 0), -90, 0, 3},
        {"south", V(0, 0, -1), 180, 0, 1},
        {"south, by way of west", V(-0.0, 0, -1), -180, 0, 1},
        {"north-east", V(1, 0, 1), 45, 0, root2},
        {"up", V(0, 5, 0), 0, 90, 5},
        {"down", V(0, -5, 0), 0, -90, 5},
        {"down, with the signs of zeros", V(-0.0, -5, -0.0), 0, -90, 5},
        {"halfway up in the south-west", V(-1, root2, -1), -135, 45, 2},
        {"one of each", V(1, 1, 1), 45, std::asin(1 / root3) * 180 / std::numbers::pi, root3},
        {"nothing", V(0, 0, 0), 0, 0, 0},
        {"far away", V(3e200, 0, 4e200), std::atan2(3, 4) * 180 / std::numbers::pi, 0, 5e200},
    };
    for (const Row & row : rows) {
        const auto polar = GroundPlateNavigation::cartesian2Polar(row.offset);
        EXPECT_NEAR(polar.azimuth, row.azimuth, 1e-12) << row.name;
        EXPECT_NEAR(polar.elevation, row.elevation, 1e-12) << row.name;
        EXPECT_NEAR(polar.distance, row.distance, 1e-12 * (1 + row.distance)) << row.name;
    }
}

TEST(GroundPlateNavigation, AnglesAndDistanceGiveTheOffsetBack) {
    std::mt19937 random(3);
    std::normal_distribution<double> normal;
    for (int i = 0; i < 1000; ++i) {
        const V offset = V(normal(random), normal(random), normal(random)) * std::pow(10.0, normal(random));
        const auto polar = GroundPlateNavigation::cartesian2Polar(offset);
        const double a = polar.azimuth * std::numbers::pi / 180, e = polar.elevation * std::numbers::pi / 180;
        const V back = V(std::sin(a) * std::cos(e), std::sin(e), std::cos(a) * std::cos(e)) * polar.distance;
        EXPECT_NEAR((back - offset).length(), 0.0, 1e-12 * polar.distance);
    }
}

TEST(GroundPlateNavigation, NotANumberStaysOne) {
    const auto polar = GroundPlateNavigation::cartesian2Polar(V(std::nan(""), 1, 2));
    EXPECT_TRUE(std::isnan(polar.azimuth) && std::isnan(polar.elevation) && std::isnan(polar.distance));
}

} // namespace
