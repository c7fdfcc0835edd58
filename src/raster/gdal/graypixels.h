#pragma once

#include <cstdint>

#include <zmt/raster/gdal/rasterwriter.h>

namespace ZMT::RASTER {

/// The pixel for a number from 0 to 255, or NaN.
struct GrayPixel {
    GrayPixel(float value, RasterWriter::Pixels kind) {
        const bool isThere = value == value, isInk = kind == RasterWriter::P_Ink;
        const int level = isThere ? static_cast<int>(value) : 0;
        gray = static_cast<std::uint8_t>(isInk ? 0 : level);
        alpha = static_cast<std::uint8_t>(!isThere ? 0 : isInk ? 255 - level : 255);
    }

    std::uint8_t gray, alpha;
};

} // namespace ZMT::RASTER
