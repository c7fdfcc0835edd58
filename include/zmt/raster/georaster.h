#pragma once

#include <nbx/object/so.h>
#include <zmt/raster/georeference.h>
#include <zmt/raster/simplerasterdata.h>

namespace ZMT::RASTER {

/// A raster together with the meaning of its coordinates.
struct GeoRaster {
    NBX::SO<SimpleRasterData<float>> raster;
    GeoReference reference;
};

} // namespace ZMT::RASTER
