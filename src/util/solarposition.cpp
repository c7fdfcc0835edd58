// Steps and letters as in the chapters of the book. Universal time stands for dynamical time, from which it
// differs by about a minute: 0.001 degree of the sun's way.

#include <zmt/util/solarposition.h>

#include <cmath>
#include <numbers>

namespace ZMT::UTIL {

namespace {

constexpr double s_degree = std::numbers::pi / 180.0;
constexpr double s_secondsOfDay = 86400.0;
constexpr double s_julianDayOf1970 = 2440587.5, s_julianDayOf2000 = 2451545.0;
constexpr double s_daysOfCentury = 36525.0;

double sine(double degrees) {
    return std::sin(degrees * s_degree);
}

double cosine(double degrees) {
    return std::cos(degrees * s_degree);
}

/// From 0 to below 360.
double turned(double degrees) {
    const double angle = std::fmod(degrees, 360.0);
    const double positive = angle < 0.0 ? angle + 360.0 : angle;
    return positive < 360.0 ? positive : 0.0;
}

/// As seen from the middle of the earth, and what turns with the equinox.
struct Equatorial {
    double rightAscension, declination;
    double equationOfEquinoxes;
};

/// Chapter 25; `t` is in Julian centuries from 2000.
Equatorial sunAt(double t) {
    const double meanLongitude = 280.46646 + t * (36000.76983 + t * 0.0003032);
    const double anomaly = 357.52911 + t * (35999.05029 - t * 0.0001537);
    const double centre = (1.914602 - t * (0.004817 + t * 0.000014)) * sine(anomaly) +
                          (0.019993 - t * 0.000101) * sine(2.0 * anomaly) + 0.000289 * sine(3.0 * anomaly);
    const double node = 125.04 - 1934.136 * t;
    const double longitude = meanLongitude + centre - 0.00569 - 0.00478 * sine(node);
    const double meanObliquity = 23.4392911 - t * (46.8150 + t * (0.00059 - t * 0.001813)) / 3600.0;
    const double obliquity = meanObliquity + 0.00256 * cosine(node);
    return {turned(std::atan2(cosine(obliquity) * sine(longitude), cosine(longitude)) / s_degree),
            std::asin(sine(obliquity) * sine(longitude)) / s_degree,
            -0.00478 * sine(node) * cosine(obliquity)};
}

/// Chapter 12: mean, at Greenwich.
double siderealTime(double daysFrom2000) {
    const double t = daysFrom2000 / s_daysOfCentury;
    return 280.46061837 + 360.98564736629 * daysFrom2000 + t * t * (0.000387933 - t / 38'710'000.0);
}

/// What the air lifts the sun by, at sea level.
double refraction(double elevation) {
    const double tangent = std::tan(elevation * s_degree);
    double seconds = 0.0;
    if (elevation > 85.0)
        seconds = 0.0;
    else if (elevation > 5.0)
        seconds = 58.1 / tangent - 0.07 / std::pow(tangent, 3) + 0.000086 / std::pow(tangent, 5);
    else if (elevation > -0.575)
        seconds =
            1735.0 + elevation * (-518.2 + elevation * (103.4 + elevation * (-12.79 + elevation * 0.711)));
    else
        seconds = -20.772 / tangent;
    return seconds / 3600.0;
}

} // namespace

SolarPosition SolarPosition::at(double time, double longitude, double latitude) {
    const double days = time / s_secondsOfDay + (s_julianDayOf1970 - s_julianDayOf2000);
    const Equatorial sun = sunAt(days / s_daysOfCentury);
    const double hourAngle = siderealTime(days) + sun.equationOfEquinoxes + longitude - sun.rightAscension;
    // Chapter 13, with the azimuth from the north.
    const double east = -cosine(sun.declination) * sine(hourAngle);
    const double north = sine(sun.declination) * cosine(latitude) -
                         cosine(sun.declination) * cosine(hourAngle) * sine(latitude);
    const double up = sine(sun.declination) * sine(latitude) +
                      cosine(sun.declination) * cosine(hourAngle) * cosine(latitude);
    const double elevation = std::atan2(up, std::hypot(east, north)) / s_degree;
    return {turned(std::atan2(east, north) / s_degree), elevation, elevation + refraction(elevation),
            sun.rightAscension, sun.declination};
}

} // namespace ZMT::UTIL
