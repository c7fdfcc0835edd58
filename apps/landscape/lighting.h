#pragma once

#include <string>

#include <nbx/math/vector3base.h>

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

/// AZIMUTH,ELEVATION[,AMBIENT]: degrees clockwise from north, degrees above the horizon. Throws `UsageError`.
Sunlight parseSunlight(const std::string & text);
