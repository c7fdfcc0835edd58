#pragma once

#include <string>

#include <zmt/raster/georaster.h>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {

/// Brings rasters into a coordinate system in metres, in which terrains are built.
class RasterWarp {
public:
    /// True where `toMetric` would change the coordinates: angles, and lengths other than metres.
    static bool isNeeded(const GeoReference & reference);

    /// A raster in degrees is resampled bilinearly: to the UTM zone of its centre where it is less than 12
    /// degrees wide, to a polar stereographic system near the poles, and cell by cell to an equidistant
    /// cylindrical system, true to scale in its middle, where it is larger. A raster in feet and the like
    /// keeps its cells and gets coordinates in metres. Any other raster is given back as it is. Heights are
    /// not touched. Undefined cells of the result are NaN. The raster is null when `progress` was
    /// cancelled. Throws `NBX::InputException` where the coordinates are no positions on the globe, and where
    /// the system cannot be converted.
    static GeoRaster toMetric(const GeoRaster & source, NBX::Progress * progress = nullptr);

    /// In the system `wkt`, resampled bilinearly. A raster in the same system, or in one that is not known,
    /// is given back as it is. Otherwise as above.
    static GeoRaster toSystem(const GeoRaster & source, const std::string & wkt,
                              NBX::Progress * progress = nullptr);
};

} // namespace ZMT::RASTER
