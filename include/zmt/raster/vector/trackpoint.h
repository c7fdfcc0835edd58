#pragma once

#include <vector>

#include <nbx/math/vector3base.h>

namespace ZMT::RASTER {

/// Where something was at a time.
struct TrackPoint {
    double
        time; ///< seconds since the beginning of 1970, UTC, without leap seconds; NaN where it is not known
    NBX::Vector3Base<double> position; ///< x to the east, z to the north, y the height
};

/// Points that were noted one behind the other.
using TrackPiece = std::vector<TrackPoint>;

} // namespace ZMT::RASTER
