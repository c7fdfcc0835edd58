#pragma once

#include <optional>
#include <utility>
#include <vector>

#include <nbx/math/vector3base.h>
#include <zmt/raster/geoextent.h>

namespace ZMT::RASTER {

/// A line of at least two points, in geo coordinates: x and z are x and y of the map, y is the height.
struct VectorLine {
    using Point = NBX::Vector3Base<double>;

    /// The part of the straight way from `a` to `b` that lies in `extent`, its border included, as two
    /// numbers from 0 to 1, in order; none for one outside. Source: Y.-D. Liang and B. A. Barsky, A New
    /// Concept and Method for Line Clipping, ACM TOG 3, 1984.
    static std::optional<std::pair<double, double>> clip(const GeoExtent & extent, const Point & a,
                                                         const Point & b);

    std::vector<Point> points;
    bool isClosed = false;   ///< the last point is the first one again
    bool hasHeights = false; ///< false: the heights are 0 and mean nothing
};

} // namespace ZMT::RASTER
