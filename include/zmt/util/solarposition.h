#pragma once

namespace ZMT::UTIL {

/// Where the sun stands, for light and shade: within 0.01 degree of almanacs for centuries around 2000 (what
/// refraction makes of the last degrees above the horizon depends on the weather). All angles are in degrees.
///
/// Source: J. Meeus, "Astronomical Algorithms", 2nd edition, 1998: chapters 25 (the sun, lower accuracy), 12
/// (sidereal time) and 13 (horizontal coordinates); refraction at sea level as in the solar calculator of
/// NOAA's Global Monitoring Laboratory.
struct SolarPosition {
    double azimuth;           ///< clockwise from true north, from 0 to below 360
    double elevation;         ///< of its middle above the horizon, without the air
    double apparentElevation; ///< the same as it is seen through the air
    double rightAscension;    ///< apparent, from 0 to below 360
    double declination;       ///< apparent

    /// At a time, in seconds of UTC since the beginning of 1970, seen from a place on the globe: longitude to
    /// the east, and latitude. At a pole the azimuth counts from that meridian. O(1).
    static SolarPosition at(double time, double longitude, double latitude);
};

} // namespace ZMT::UTIL
