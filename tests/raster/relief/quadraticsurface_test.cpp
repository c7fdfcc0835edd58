#include <zmt/raster/relief/quadraticsurface.h>

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace {

using ZMT::RASTER::QuadraticSurface;
using S = QuadraticSurface;

/// Of a sphere's upper half, at a point so far from its axis: height sqrt(r² - d²).
S sphere(double radius, double distance, double azimuth) {
    const double z = std::sqrt(radius * radius - distance * distance);
    const double px = distance * std::cos(azimuth), py = distance * std::sin(azimuth);
    S s;
    s.x = -px / z;
    s.y = -py / z;
    s.xx = -0.5 * (1.0 / z + px * px / (z * z * z));
    s.yy = -0.5 * (1.0 / z + py * py / (z * z * z));
    s.xy = -px * py / (z * z * z);
    return s;
}

TEST(QuadraticSurface, SlopeIsAnAngle) {
    EXPECT_DOUBLE_EQ(45.0, (S{0, 0, 0, -0.6, 0.8}.slope()));
    EXPECT_EQ(0.0, S().slope());
    EXPECT_EQ(90.0, (S{0, 0, 0, std::numeric_limits<double>::infinity(), 0.0}.slope()));
}

/// Sections through its axis are the sphere's circle; contours are circles around the axis.
TEST(QuadraticSurface, ASphereBendsTheSameEverywhere) {
    for (const double azimuth : {0.0, 0.4, 1.9, 4.0}) {
        const S s = sphere(50.0, 20.0, azimuth);
        EXPECT_NEAR(1.0 / 50.0, s.curvature(S::C_Profile), 1e-12);
        EXPECT_NEAR(1.0 / 20.0, s.curvature(S::C_Plan), 1e-12);
        const double z = std::sqrt(2100.0);
        EXPECT_NEAR(1.0 / z, s.curvature(S::C_CrossSection), 1e-12);
        EXPECT_NEAR(2500.0 / (z * z * z), s.curvature(S::C_Longitudinal), 1e-12);
        EXPECT_NEAR(0.5 * (1.0 / z + 2500.0 / (z * z * z)), s.curvature(S::C_Mean), 1e-12);
    }
}

/// Ground that bends along the slope alone, such as a dune, and across it alone, such as a gully.
TEST(QuadraticSurface, ACylinderBendsInOneDirection) {
    const S dune{-0.01, 0.0, 0.0, 0.5, 0.0}, gully{0.0, 0.01, 0.0, 0.5, 0.0};
    EXPECT_EQ(0.0, dune.curvature(S::C_CrossSection));
    EXPECT_EQ(0.0, dune.curvature(S::C_Plan));
    EXPECT_DOUBLE_EQ(0.02, dune.curvature(S::C_Longitudinal));
    EXPECT_EQ(0.0, gully.curvature(S::C_Longitudinal));
    EXPECT_EQ(0.0, gully.curvature(S::C_Profile));
    EXPECT_DOUBLE_EQ(-0.02, gully.curvature(S::C_CrossSection)) << "hollow ground is negative";
    EXPECT_DOUBLE_EQ(-0.04, gully.curvature(S::C_Plan)) << "steeper ground has straighter contours";
}

TEST(QuadraticSurface, LevelGroundHasNoDirection) {
    const S summit{-0.02, -0.01, 0.0, 0.0, 0.0};
    for (const auto kind : {S::C_CrossSection, S::C_Longitudinal, S::C_Profile, S::C_Plan})
        EXPECT_EQ(0.0, summit.curvature(kind)) << S::curvatureName(kind);
    EXPECT_DOUBLE_EQ(0.03, summit.curvature(S::C_Mean));
}

TEST(QuadraticSurface, NothingStaysNothing) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const S nothing{nan, nan, nan, nan, nan};
    EXPECT_TRUE(std::isnan(nothing.slope()));
    for (int kind = 0; kind < S::curvatures; ++kind)
        EXPECT_TRUE(std::isnan(nothing.curvature(S::Curvature(kind)))) << kind;
}

} // namespace
