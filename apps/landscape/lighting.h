#pragma once

#include <string>

#include <nbx/math/vector3base.h>
#include <zmt/raster/georeference.h>

/// How a terrain is lit.
enum class Lighting {
    Relief,  ///< a shading of the heights, one texel a vertex at most
    Vertex,  ///< OpenGL's lights on the normals of the vertices
    Static,  ///< baked into a light map
    Dynamic, ///< for each pixel, by a map of normals
};

/// relief, vertex, static or dynamic. Throws `UsageError`.
Lighting parseLighting(const std::string & text);

/// Light from far away.
struct Sunlight {
    NBX::Vector3Base<double> direction; ///< towards the sun, in scene coordinates, of length 1
    double ambient;                     ///< share of the light that comes from everywhere, 0 to 1
};

/// When the sun shines, and on which place of the globe.
struct SunMoment {
    double time = 0.0;                      ///< seconds of UTC since the beginning of 1970
    int zone = 0;                           ///< minutes by which the clocks of the place are ahead of UTC
    double longitude = 0.0, latitude = 0.0; ///< in degrees

    bool operator==(const SunMoment &) const = default;
};

/// The light of the sun on a map in this system, whose north may differ from the true one. Below the horizon
/// none of it falls on any ground, and the ambient share remains.
Sunlight sunlightAt(const SunMoment & moment, const ZMT::RASTER::GeoReference & reference, double ambient);

/// AZIMUTH,ELEVATION[,AMBIENT]: degrees clockwise from north, degrees above the horizon. Throws `UsageError`.
Sunlight parseSunlight(const std::string & text);
