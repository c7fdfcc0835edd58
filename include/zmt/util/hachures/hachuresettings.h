#pragma once

#include <limits>

namespace ZMT::UTIL {

/// How hachures run and where they end; what strokes look like stands beside it. Steps are pixels.
struct HachureSettings {
    double scaling = 1.0; ///< factor of the heights, above 0, which brings them to the unit of the map
    unsigned windowSize =
        3; ///< cells that a slope follows from, in each direction; above 1, even ones grow by 1
    double tolerance = 0.0; ///< what slopes by no more degrees is level
    /// Strokes lie where the slope, in degrees, is above, and the curvature across it, in 1 / map unit,
    /// between.
    double minSlope = 0.0;
    double minCurvature = -std::numeric_limits<double>::infinity();
    double maxCurvature = std::numeric_limits<double>::infinity();
    /// Strokes end at contours of these scaled heights.
    double baseHeight = 0.0;
    double heightInterval = 100.0;
    bool fullLength = false;    ///< false: the ends, round as the brush, stay clear of the contours
    bool overlapping = false;   ///< false: strokes keep a distance, and the one that begins higher wins
    unsigned spacingFactor = 2; ///< the distance, in widths of the brush
    unsigned seedStep = 1;      ///< every so many cells, in the order of their heights, begins a stroke
    unsigned minNSteps = 5;     ///< shorter strokes are left out
    unsigned maxNSteps = 200;   ///< above `minNSteps`
};

} // namespace ZMT::UTIL
