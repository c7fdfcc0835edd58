#pragma once

#include <cstddef>

namespace ZMT::RASTER {

/// The differences of Horn's gradient around the cell `i` of the middle one of three rows, eight cells wide:
/// in floats and in an order of their own, whose roundings other programs have as well.
struct HornSums {
    float x, y;

    /// Added up as GDAL's slope does.
    static inline HornSums ofSlope(const float * south, const float * middle, const float * north,
                                   std::size_t i) {
        const std::size_t w = i - 1, e = i + 1;
        return {(north[e] + middle[e] + middle[e] + south[e]) - (north[w] + middle[w] + middle[w] + south[w]),
                (north[w] + north[i] + north[i] + north[e]) - (south[w] + south[i] + south[i] + south[e])};
    }
    /// Added up as GDAL's hillshade does.
    static inline HornSums ofShade(const float * south, const float * middle, const float * north,
                                   std::size_t i) {
        const std::size_t w = i - 1, e = i + 1;
        const float falling = north[w] - south[e], rising = south[w] - north[e];
        const float x = middle[w] - middle[e], y = north[i] - south[i];
        return {-(falling + x + x + rising), falling + y + y - rising};
    }
};

} // namespace ZMT::RASTER
