#pragma once

#include <nbx/object/so.h>
#include <zmt/raster/simplerasterdata.h>

namespace ZMT::RASTER {

/// Rasters whose cells are as high as they are wide, for what follows slopes from pixel to pixel.
class SquareCells {
public:
    /// The raster itself where its cells are square but for a thousandth; otherwise one with the same
    /// corners, resampled bilinearly to about the smaller size of the cells, in which NaN is undefined.
    static NBX::SO<SimpleRasterData<float>> of(const NBX::SO<SimpleRasterData<float>> & raster);
};

} // namespace ZMT::RASTER
