#pragma once

#include <string>

/// How a terrain is lit.
enum class Lighting {
    Relief,  ///< a shading of the heights, one texel a vertex at most
    Vertex,  ///< OpenGL's lights on the normals of the vertices
    Static,  ///< baked into a light map
    Dynamic, ///< for each pixel, by a map of normals
};

/// relief, vertex, static or dynamic. Throws `UsageError`.
Lighting parseLighting(const std::string & text);
