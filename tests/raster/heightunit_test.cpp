#include <zmt/raster/heightunit.h>

#include <cmath>

#include <gtest/gtest.h>

namespace {

using ZMT::RASTER::HeightUnit;

TEST(HeightUnit, UnitsAreKnownByTheirNames) {
    for (const char * name : {"", "m", "M", "metre", "Meters"})
        EXPECT_EQ(1.0, HeightUnit::metres(name)) << name;
    for (const char * name : {"ft", "FEET", "foot", "international foot"})
        EXPECT_EQ(0.3048, HeightUnit::metres(name)) << name;
    for (const char * name : {"US survey foot", "us-ft", "ftUS", "US_survey_foot", "Foot_US"})
        EXPECT_EQ(1200.0 / 3937.0, HeightUnit::metres(name)) << name;
    EXPECT_EQ(0.01, HeightUnit::metres("cm"));
    for (const char * name : {"dBZ", "degree", "metre ", "mètre"})
        EXPECT_FALSE(HeightUnit::metres(name)) << name;
}

TEST(HeightUnit, WhatIsNotDefinedStays) {
    ZMT::RASTER::SimpleRasterData<float> heights(3, 2, 0.0, 0.0, 1.0, 1.0, true, -9999.0F);
    heights.setValue(0, 0, 100.0F);
    heights.setValue(2, 1, -10.0F);
    HeightUnit::scale(heights, 0.3048);
    EXPECT_FLOAT_EQ(30.48F, static_cast<float>(heights.value(0U, 0U)));
    EXPECT_FLOAT_EQ(-3.048F, static_cast<float>(heights.value(2U, 1U)));
    EXPECT_EQ(-9999.0F, heights.cells()[1]);
}

} // namespace
