#include <zmt/raster/relief/shadeproduct.h>

#include <cmath>
#include <limits>

#include "eachprocessor.h"
#include "hornsums.h"

namespace ZMT::RASTER {

namespace {

constexpr float s_undefined = std::numeric_limits<float>::quiet_NaN();

struct ShadedRow {
    const float *south, *middle, *north;
    unsigned width;
    /// By which sums become slopes.
    double slopeX, slopeY;
    double toEast, toNorth, up;
};

/// By the cosine between the normal (-x, -y, 1) of the ground and the light.
ZMT_EACH_PROCESSOR void shade(ShadedRow row, float * __restrict values) {
    constexpr double steps = 254.0;
    const float *south = row.south, *middle = row.middle, *north = row.north;
    const std::size_t end = row.width - 1;
    for (std::size_t i = 1; i < end; ++i) {
        const HornSums sums = HornSums::ofShade(south, middle, north, i);
        const double x = sums.x * row.slopeX, y = sums.y * row.slopeY;
        const double light =
            steps * (row.up - x * row.toEast - y * row.toNorth) / std::sqrt(1.0 + x * x + y * y);
        const double lit = light <= 0.0 ? 1.0 : 1.0 + light; // keeps what is no number
        const float unknown = middle[i] - middle[i];
        // Of floats that round to the nearest whole number, as pictures store them.
        values[i] = std::floor(static_cast<float>(lit) + 0.5F) + unknown;
    }
}

} // namespace

ShadeProduct::ShadeProduct(double azimuth, double elevation, double exaggeration)
    : exaggeration_(exaggeration) {
    constexpr double radians = M_PI / 180.0;
    toEast_ = std::sin(azimuth * radians) * std::cos(elevation * radians);
    toNorth_ = std::cos(azimuth * radians) * std::cos(elevation * radians);
    up_ = std::sin(elevation * radians);
}

void ShadeProduct::computeRow(const float * const * rows, unsigned width, double cellSizeX, double cellSizeY,
                              float * values) const {
    if (width == 0) return;
    values[0] = values[width - 1] = s_undefined;
    const double slope = exaggeration_ / 8.0; // the sums are differences over two cells, four times
    shade({rows[0], rows[1], rows[2], width, slope / cellSizeX, slope / cellSizeY, toEast_, toNorth_, up_},
          values);
}

} // namespace ZMT::RASTER
