#pragma once

#include <vector>

namespace ZMT::RASTER {

/// A line of a drawing, in map coordinates, that is as wide as its points say.
struct StrokeLine {
    struct Point {
        double x, y;
        double width; ///< in map units
    };

    std::vector<Point> points; ///< at least one
};

} // namespace ZMT::RASTER
