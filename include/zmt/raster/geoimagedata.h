#pragma once

#include <cstdint>
#include <vector>

namespace ZMT::RASTER {

/// A rectangle in map coordinates.
struct GeoExtent {
    double minX = 0.0;
    double minY = 0.0;
    double maxX = 0.0;
    double maxY = 0.0;
};

/// The pixels of an image and their place. Line 0 is the southern one. `extent` goes to the outer edges of
/// the border pixels, not to their centres.
struct GeoImageData {
    unsigned width = 0;
    unsigned height = 0;
    std::vector<std::uint8_t>
        rgba; ///< `width * height` pixels of four bytes; alpha 0 where there is no image
    GeoExtent extent;
};

} // namespace ZMT::RASTER
