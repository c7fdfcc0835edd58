#include "landscape/lighting.h"

#include <gtest/gtest.h>

#include "landscape/errors.h"

namespace {

TEST(ParseLighting, KnowsFourNames) {
    EXPECT_EQ(Lighting::Relief, parseLighting("relief"));
    EXPECT_EQ(Lighting::Vertex, parseLighting("vertex"));
    EXPECT_EQ(Lighting::Static, parseLighting("static"));
    EXPECT_EQ(Lighting::Dynamic, parseLighting("dynamic"));
    for (const char * text : {"", "Relief", "neon"})
        EXPECT_THROW(parseLighting(text), UsageError) << text;
}

TEST(ParseSunlight, AnglesBecomeADirection) {
    const Sunlight east = parseSunlight("90,30");
    EXPECT_NEAR(std::sqrt(0.75), east.direction.x, 1e-12);
    EXPECT_NEAR(0.5, east.direction.y, 1e-12);
    EXPECT_NEAR(0.0, east.direction.z, 1e-12);
    EXPECT_GT(parseSunlight("-45,10").direction.z, 0.0) << "north-west";
    EXPECT_LT(parseSunlight("-45,10").direction.x, 0.0) << "north-west";
    EXPECT_NEAR(1.0, parseSunlight("315,90").direction.y, 1e-12);
}

TEST(ParseSunlight, AmbientMayBeGiven) {
    EXPECT_EQ(0.35, parseSunlight("315,45").ambient);
    EXPECT_EQ(0.0, parseSunlight("315,45,0").ambient);
    EXPECT_EQ(1.0, parseSunlight("315,45,1").ambient);
}

TEST(ParseSunlight, EverythingElseIsRefused) {
    for (const char * text : {"", "315", "315,", "315,45,", "315,45;0.5", "315,45,0.5,1", "315,0", "315,91",
                              "nan,45", "inf,45", "315,nan", "315,45,-0.1", "315,45,1.1", "315,45,nan"})
        EXPECT_THROW(parseSunlight(text), UsageError) << text;
}

} // namespace
