#include "landscape/lighting.h"

#include <cmath>

#include <gtest/gtest.h>

#include "landscape/errors.h"

#include <zmt/raster/gdal/coordinatesystem.h>

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

/// 2024-03-20 at noon of Greenwich.
SunMoment equinoxAt(double longitude, double latitude) {
    return {1710936000.0, 0, longitude, latitude};
}

TEST(Sunlight, ComesFromWhereTheSunStands) {
    const Sunlight light = sunlightAt(equinoxAt(0.0, 50.0), {}, 0.2);
    EXPECT_EQ(light.ambient, 0.2);
    EXPECT_NEAR(light.direction.length(), 1.0, 1e-12);
    EXPECT_NEAR(light.direction.y, std::sin(40.1 * M_PI / 180.0), 0.005);
    EXPECT_LT(light.direction.z, -0.75) << "from the south";
    EXPECT_GT(sunlightAt(equinoxAt(-60.0, 50.0), {}, 0.2).direction.x, 0.8) << "in the west it is morning";
}

TEST(Sunlight, BelowTheHorizonItMeetsNoGround) {
    EXPECT_EQ(sunlightAt(equinoxAt(170.0, 50.0), {}, 0.2).direction, (NBX::Vector3Base<double>(0, -1, 0)));
}

/// North of the equator the meridians east of the middle one lean to it: true north is west of the map's.
TEST(Sunlight, FollowsTheMeridiansOfTheMap) {
    const auto zone = ZMT::RASTER::CoordinateSystem::parse("EPSG:32631"); // its middle is 3 degrees east
    const auto azimuth = [](const Sunlight & light) {
        return std::atan2(light.direction.x, light.direction.z);
    };
    for (const double longitude : {0.5, 3.0, 5.5}) {
        const double latitude = 60.0, degree = M_PI / 180.0;
        const SunMoment moment = equinoxAt(longitude, latitude);
        const double turn = azimuth(sunlightAt(moment, zone, 0.2)) - azimuth(sunlightAt(moment, {}, 0.2));
        const double convergence =
            std::atan(std::tan((longitude - 3.0) * degree) * std::sin(latitude * degree));
        EXPECT_NEAR(std::remainder(turn + convergence, 2.0 * M_PI), 0.0, 1e-4) << longitude;
    }
}

} // namespace
