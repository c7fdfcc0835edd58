#pragma once

#include <cstddef>
#include <cstdint>

#include <zmt/raster/gdal/rasterwriter.h>

namespace ZMT::RASTER {

/// Makes pixels of a grey level and alpha of numbers from 0 to 255, and NaN.
inline void makeGrayPixels(const float * values, std::size_t count, RasterWriter::Pixels kind,
                           std::uint8_t * pixels) {
    for (std::size_t i = 0; i < count; ++i) {
        const bool isThere = values[i] == values[i];
        const auto gray = static_cast<std::uint8_t>(isThere ? static_cast<int>(values[i]) : 0);
        const bool isInk = kind == RasterWriter::P_Ink;
        const int alpha = isInk ? 255 - gray : 255;
        pixels[2 * i] = isInk ? std::uint8_t(0) : gray;
        pixels[2 * i + 1] = static_cast<std::uint8_t>(isThere ? alpha : 0);
    }
}

} // namespace ZMT::RASTER
