#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <nbx/math/vector3base.h>

namespace ZMT::UTIL {

/// A mesh as files take it: right-handed, x to the east, y to the north, z up, seen from outside where its
/// triangles turn left. Positions are `float`, small enough for it by their distance from `origin`.
struct SurfaceMesh {
    std::vector<std::array<float, 3>> positions;
    /// Of each position, from the lower left corner of the picture to the upper right one; empty without a
    /// picture.
    std::vector<std::array<float, 2>> textureCoordinates;
    std::vector<std::array<std::uint32_t, 3>> triangles;

    /// Map coordinates, and the height, are `position / scale + origin`.
    NBX::Vector3Base<double> origin;
    double scale = 1.0;
    std::string wkt;    ///< the system of the map coordinates; empty where it is not known
    std::string system; ///< its short name, such as "EPSG:32645"; empty where it has none
    /// The largest vertical distance of a height of the raster from these triangles, in its unit.
    double error = 0.0;
};

} // namespace ZMT::UTIL
