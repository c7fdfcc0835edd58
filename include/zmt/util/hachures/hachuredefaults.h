#pragma once

#include <zmt/util/hachures/hachuresettings.h>

namespace ZMT::RASTER {
class RasterData;
}

namespace ZMT::UTIL {

/// What hachures look well with, by the size of a raster and the range of its slopes, where heights have the
/// unit of the map: about a quarter of the picture becomes ink.
struct HachureDefaults {
    unsigned width, height; ///< of the picture; corner pixels lie on corner cells, others too
    double strokeSize = 3.0, innerStrokeSize = 1.0;
    unsigned maxStrokeSize = 6; ///< of those that follow another raster
    double usualSlope = 0.0;    ///< degrees that half of the raster is steeper than
    HachureSettings settings;

    /// Reads some of the cells of large rasters.
    static HachureDefaults of(const RASTER::RasterData & raster);

    /// The nearest one of 1, 2 and 5 times a power of ten.
    static double rounded(double number);
};

} // namespace ZMT::UTIL
