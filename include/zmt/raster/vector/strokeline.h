#pragma once

#include <vector>

namespace ZMT::RASTER {

/// A line of a drawing, in map coordinates, that is as wide as its points say: from each to the next by the
/// first of the two.
struct StrokeLine {
    struct Point {
        double x, y;
        double width; ///< in map units
    };

    std::vector<Point> points; ///< at least one

    /// The same as lines that are as wide all along; the next begins where one ends.
    std::vector<StrokeLine> partsOfOneWidth() const;
    /// False where all points are one place.
    bool hasLength() const;
};

} // namespace ZMT::RASTER
