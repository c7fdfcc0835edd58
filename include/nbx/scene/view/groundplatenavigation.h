#pragma once

#include <nbx/math/vector3base.h>

namespace NBX {

/// Directions as one who stands on the ground tells them.
class GroundPlateNavigation {
public:
    struct Polar {
        double azimuth;   ///< degrees from north (z) by way of east (x), -180 to 180
        double elevation; ///< degrees above the ground, -90 to 90
        double distance;
    };

    /// Straight up, straight down and for a zero vector the azimuth is 0; so is the elevation of a zero
    /// vector.
    static Polar cartesian2Polar(const Vector3Base<double> & offset);
};

} // namespace NBX
