#pragma once

#include <nbx/math/vector3base.h>

namespace ZMT::UTIL {

/// How long a degree is at some latitude, on a spheroid: quick factors for views and labels. They are good to
/// about two parts in a hundred; what is measured or written goes through `RASTER::CoordinateSystem`.
class GeographicTransformations {
public:
    /// Degrees per metre: along the parallel in x, along the meridian in z; y is 1, since heights stay
    /// metres. `latitude` is in degrees, between the poles.
    static NBX::Vector3Base<double> meterToDegree(double latitude);
    /// Metres per degree; one by what `meterToDegree` gives.
    static NBX::Vector3Base<double> degreeToMeter(double latitude);
};

} // namespace ZMT::UTIL
