#pragma once

#include <vector>

#include <zmt/raster/georeference.h>
#include <zmt/raster/rasterdata.h>
#include <zmt/raster/relief/reliefwalk.h>

namespace ZMT::RASTER {

/// How large the cells of a raster are on the ground.
class CellSizes {
public:
    /// Of each row, from the southern one on, in units of `heightUnit` metres. Those of rasters in degrees
    /// are measured on the ellipsoid of WGS 84, row by row in the middle of the raster; near a pole, and
    /// where there is no place on the globe, there are none. Others are as large as the map says; without a
    /// place on the map its unit counts as a metre. Throws `NBX::InputException` for a system that cannot be
    /// converted.
    static std::vector<CellSize> of(const RasterGrid & grid, const GeoReference & reference,
                                    double heightUnit = 1.0);
};

} // namespace ZMT::RASTER
