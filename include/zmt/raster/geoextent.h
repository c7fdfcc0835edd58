#pragma once

namespace ZMT::RASTER {

/// A rectangle in map coordinates.
struct GeoExtent {
    double minX = 0.0;
    double minY = 0.0;
    double maxX = 0.0;
    double maxY = 0.0;
};

} // namespace ZMT::RASTER
