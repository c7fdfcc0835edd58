// The arc tangent is brought to arguments within an eighth of the half circle by two identities, where a
// polynomial through the nodes of Chebyshev is exact to 2e-16. Without branches, so that several run at once.

#include <zmt/raster/relief/slopeproduct.h>

#include <cmath>
#include <limits>
#include <vector>

#include "eachprocessor.h"
#include "hornsums.h"

namespace ZMT::RASTER {

namespace {

constexpr float s_undefined = std::numeric_limits<float>::quiet_NaN();
constexpr double s_degrees = 180.0 / M_PI;
/// Horn's sums are differences over two cells, four times.
constexpr double s_hornCells = 8.0;

/// In degrees, of an argument from 0 on.
ZMT_INLINE inline double arcTangent(double x) {
    constexpr double eighth = 0.41421356237309504880,
                     threeEighths = 2.41421356237309504880; // of the half circle
    const bool isLarge = x > threeEighths, isMiddle = x > eighth;
    const double numerator = isLarge ? -1.0 : (isMiddle ? x - 1.0 : x);
    const double denominator = isLarge ? x : (isMiddle ? x + 1.0 : 1.0);
    const double offset = isLarge ? 0.5 * M_PI : (isMiddle ? 0.25 * M_PI : 0.0);
    const double t = numerator / denominator, z = t * t;
    constexpr double factors[] = {0.021135371536498405, -0.04348052083340627, 0.05688349180988417,
                                  -0.06640233921673451, 0.07689953495298942,  -0.0909077307473686,
                                  0.11111106180452865,  -0.14285714180976392, 0.19999999998855109,
                                  -0.3333333333332844};
    double sum = factors[0];
#pragma GCC unroll 9
    for (int i = 1; i < 10; ++i)
        sum = sum * z + factors[i];
    return (offset + (t * (z * sum) + t)) * s_degrees;
}

struct HornRow {
    const float *south, *middle, *north;
    unsigned width;
    double slopeX, slopeY; ///< by which sums become slopes
};

/// `ending` makes numbers of tangents.
template <class Ending> ZMT_INLINE inline void horn(HornRow row, float * __restrict values, Ending ending) {
    const float *south = row.south, *middle = row.middle, *north = row.north;
    const std::size_t end = row.width - 1;
    for (std::size_t i = 1; i < end; ++i) {
        const HornSums sums = HornSums::ofSlope(south, middle, north, i);
        const double x = sums.x * row.slopeX, y = sums.y * row.slopeY;
        // The cell itself has no weight, but no slope either where it is no number.
        const double unknown = middle[i] - middle[i];
        values[i] = static_cast<float>(ending(std::sqrt(x * x + y * y)) + unknown);
    }
}

ZMT_EACH_PROCESSOR void hornDegrees(HornRow row, float * values) {
    horn(row, values, [](double tangent) ZMT_INLINE { return arcTangent(tangent); });
}

ZMT_EACH_PROCESSOR void hornPercent(HornRow row, float * values) {
    horn(row, values, [](double tangent) ZMT_INLINE { return 100.0 * tangent; });
}

} // namespace

SlopeProduct::SlopeProduct(Unit unit, double exaggeration, unsigned windowSize)
    : unit_(unit), exaggeration_(exaggeration), fit_(windowSize) {}

void SlopeProduct::computeRow(const float * const * rows, unsigned width, double cellSizeX, double cellSizeY,
                              float * values) const {
    if (windowSize() == 3) {
        if (width == 0) return;
        values[0] = values[width - 1] = s_undefined;
        const double factor = exaggeration_ / s_hornCells;
        const HornRow row{rows[0], rows[1], rows[2], width, factor / cellSizeX, factor / cellSizeY};
        unit_ == U_Degrees ? hornDegrees(row, values) : hornPercent(row, values);
        return;
    }
    std::vector<QuadraticSurface> surfaces(width);
    fit_.fitRow(rows, width, cellSizeX, cellSizeY, surfaces.data());
    for (unsigned i = 0; i < width; ++i) {
        const double tangent = std::hypot(surfaces[i].x, surfaces[i].y) * exaggeration_;
        values[i] = static_cast<float>(unit_ == U_Degrees ? std::atan(tangent) * s_degrees : 100.0 * tangent);
    }
}

} // namespace ZMT::RASTER
