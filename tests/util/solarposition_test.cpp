#include <zmt/util/solarposition.h>

#include <cmath>
#include <ctime>
#include <random>

#include <gtest/gtest.h>

namespace {

using ZMT::UTIL::SolarPosition;

/// Seconds since 1970.
double utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    std::tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    return double(timegm(&time));
}

double angleBetween(double a, double b) {
    return std::abs(std::remainder(a - b, 360.0));
}

// J. Meeus, "Astronomical Algorithms", example 25.a: 1992 October 13 at 0 h.
TEST(SolarPosition, StandsWhereTheBookHasIt) {
    const SolarPosition sun = SolarPosition::at(utc(1992, 10, 13), 0.0, 0.0);
    EXPECT_NEAR(sun.rightAscension, 198.38083, 1e-3);
    EXPECT_NEAR(sun.declination, -7.78507, 1e-3);
}

// I. Reda and A. Andreas, "Solar Position Algorithm for Solar Radiation Applications", 2004, example: Golden,
// Colorado, on 2003 October 17 at 12:30:30 of UTC-7. Its air is thinner than that at sea level.
TEST(SolarPosition, StandsWhereAnExactAlgorithmHasIt) {
    const SolarPosition sun = SolarPosition::at(utc(2003, 10, 17, 19, 30, 30), -105.1786, 39.742476);
    EXPECT_NEAR(sun.azimuth, 194.34024, 0.01);
    EXPECT_NEAR(sun.apparentElevation, 90.0 - 50.11162, 0.01);
    EXPECT_NEAR(sun.declination, -9.31434, 0.01);
}

/// Instants that almanacs give to the minute.
TEST(SolarPosition, EquinoxesAndSolsticesComeInTheirMinute) {
    const double minute = 60.0;
    for (const double equinox : {utc(2000, 3, 20, 7, 35), utc(2024, 3, 20, 3, 6), utc(2024, 9, 22, 12, 44)}) {
        const double declination = SolarPosition::at(equinox, 0.0, 0.0).declination;
        EXPECT_NEAR(declination, 0.0, 0.004) << equinox;
    }
    for (const auto & [solstice, sign] :
         {std::pair(utc(2024, 6, 20, 20, 51), 1.0), std::pair(utc(2024, 12, 21, 9, 20), -1.0)}) {
        const auto declination = [&](double time) {
            return sign * SolarPosition::at(time, 0, 0).declination;
        };
        EXPECT_NEAR(declination(solstice), 23.438, 0.002);
        // So near the top the curve is flat; days around it tell where it is.
        const double before = declination(solstice - 2880.0 * minute);
        const double after = declination(solstice + 2880.0 * minute);
        EXPECT_NEAR(before, after, 0.001);
        EXPECT_LT(before, declination(solstice));
    }
}

/// By the extremes of the equation of time: at Greenwich the sun is due south at 12:00 less that.
TEST(SolarPosition, NoonIsWhenTheEquationOfTimeSays) {
    for (const double noon : {utc(2023, 2, 11, 12, 14, 13), utc(2023, 11, 3, 11, 43, 33)}) {
        EXPECT_NEAR(SolarPosition::at(noon, 0.0, 51.4779).azimuth, 180.0, 0.1) << noon;
        EXPECT_LT(angleBetween(SolarPosition::at(noon, 0.0, -51.4779).azimuth, 0.0), 0.1) << noon;
    }
}

TEST(SolarPosition, FollowsTheLawsOfTheSphere) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> anyTime(utc(1900, 1, 1), utc(2100, 1, 1)), anyLongitude(-180, 180),
        anyLatitude(-89.0, 89.0);
    constexpr double degree = M_PI / 180.0;
    for (int i = 0; i < 2000; ++i) {
        const double time = anyTime(random), longitude = anyLongitude(random), latitude = anyLatitude(random);
        const SolarPosition sun = SolarPosition::at(time, longitude, latitude);
        ASSERT_TRUE(sun.azimuth >= 0.0 && sun.azimuth < 360.0);
        ASSERT_LE(std::abs(sun.declination), 23.46);
        // By azimuth and elevation the declination comes back.
        const double sine =
            std::sin(sun.elevation * degree) * std::sin(latitude * degree) +
            std::cos(sun.elevation * degree) * std::cos(latitude * degree) * std::cos(sun.azimuth * degree);
        EXPECT_NEAR(std::asin(sine) / degree, sun.declination, 1e-6);
        // At the antipodes it is as far on the other side of the horizon.
        const SolarPosition below = SolarPosition::at(time, longitude + 180.0, -latitude);
        EXPECT_NEAR(below.elevation, -sun.elevation, 1e-6);
        // At a pole it neither rises nor sets in a day.
        EXPECT_NEAR(SolarPosition::at(time, longitude, 90.0).elevation, sun.declination, 1e-6);
        // It is seen where it is, or higher.
        EXPECT_GE(sun.apparentElevation, sun.elevation - 1e-3);
        EXPECT_LE(sun.apparentElevation, sun.elevation + 0.6);
    }
}

TEST(SolarPosition, RisesInTheEastAtTheEquinox) {
    const double day = utc(2024, 3, 20);
    int risings = 0;
    for (double time = day; time < day + 86400.0; time += 60.0) {
        const SolarPosition now = SolarPosition::at(time, 10.0, 45.0);
        const SolarPosition next = SolarPosition::at(time + 60.0, 10.0, 45.0);
        if (now.elevation > 0.0 || next.elevation <= 0.0) continue;
        ++risings;
        EXPECT_NEAR(now.azimuth, 90.0, 0.5);
        EXPECT_NEAR(now.apparentElevation - now.elevation, 0.5, 0.03) << "nearly its own width";
    }
    EXPECT_EQ(risings, 1);
}

TEST(SolarPosition, TheAirHasNoSteps) {
    double before = NAN;
    // Along a day of summer at the equator it passes all elevations.
    for (double time = utc(2024, 6, 20); time < utc(2024, 6, 21); time += 1.0) {
        const SolarPosition sun = SolarPosition::at(time, 0.0, 0.0);
        const double lift = sun.apparentElevation - sun.elevation;
        if (!std::isnan(before)) {
            EXPECT_NEAR(lift, before, 0.006) << sun.elevation;
        }
        before = lift;
    }
}

} // namespace
