#pragma once

#include <string>

#include <nbx/math/vector3base.h>

/// Light from far away.
struct Sunlight {
    NBX::Vector3Base<double> direction; ///< towards the sun, in scene coordinates, of length 1
    double ambient;                     ///< share of the light that comes from everywhere, 0 to 1
};

/// AZIMUTH,ELEVATION[,AMBIENT]: degrees clockwise from north, degrees above the horizon. Throws `UsageError`.
Sunlight parseSunlight(const std::string & text);
