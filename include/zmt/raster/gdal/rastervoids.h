#pragma once

#include <zmt/raster/simplerasterdata.h>

namespace NBX {
class Progress;
}

namespace ZMT::RASTER {

/// The cells of a raster that were never measured, as the shadows of a radar in steep mountains.
class RasterVoids {
public:
    /// Cells that are farther than this from every defined one, in cells, stay as they are.
    static constexpr double s_reach = 200.0;

    /// A copy of `raster` whose undefined cells are interpolated, weighted by the inverse distance, from the
    /// nearest defined ones in four directions, and smoothed (GDAL's filling of no-data). What stays
    /// undefined is NaN. Gives `raster` itself where nothing is undefined, or everything is; null when
    /// `progress` was cancelled. Throws `NBX::InputException` where GDAL fails.
    static NBX::SO<SimpleRasterData<float>> fill(const NBX::SO<SimpleRasterData<float>> & raster,
                                                 NBX::Progress * progress = nullptr);
};

} // namespace ZMT::RASTER
