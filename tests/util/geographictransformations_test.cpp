#include <zmt/util/geographictransformations.h>

#include <gtest/gtest.h>

namespace {

using ZMT::UTIL::GeographicTransformations;

// Of the same formulas, computed elsewhere.
TEST(GeographicTransformations, DegreesOfAMetre) {
    const struct {
        double latitude, x, z;
    } rows[] = {
        {0.0, 8.98320496363373e-06, 8.8803649731517e-06},
        {45.0, 1.2725472283066089e-05, 8.895427754396223e-06},
        {60.0, 1.801157936361622e-05, 8.902949716116382e-06},
        {-60.0, 1.801157936361622e-05, 8.902949716116382e-06},
        {89.9, 0.005164240836283947, 8.910465268741063e-06},
    };
    for (const auto & row : rows) {
        const auto degrees = GeographicTransformations::meterToDegree(row.latitude);
        EXPECT_NEAR(degrees.x, row.x, 1e-12 * row.x) << row.latitude;
        EXPECT_EQ(degrees.y, 1.0);
        // A small difference of large angles.
        EXPECT_NEAR(degrees.z, row.z, 1e-13) << row.latitude;
    }
}

TEST(GeographicTransformations, MetresOfADegree) {
    EXPECT_NEAR(GeographicTransformations::degreeToMeter(0.0).x, 111318.84489425, 1e-6);
    EXPECT_NEAR(GeographicTransformations::degreeToMeter(0.0).z, 112608.0, 1.0);
    for (const double latitude : {-80.0, -12.5, 0.0, 47.0, 80.0}) {
        const auto metres = GeographicTransformations::degreeToMeter(latitude);
        const auto degrees = GeographicTransformations::meterToDegree(latitude);
        EXPECT_EQ(metres.x, 1.0 / degrees.x);
        EXPECT_EQ(metres.y, 1.0);
        EXPECT_EQ(metres.z, 1.0 / degrees.z);
    }
}

} // namespace
