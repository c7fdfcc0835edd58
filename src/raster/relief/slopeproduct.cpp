// The arc tangent is S. L. Moshier's of the Cephes Mathematical Library, 1995: the argument is brought below
// 0.66 by two identities, and a quotient of polynomials does the rest. Without branches, so that several run
// at once.

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
    const bool isLarge = x > 2.41421356237309504880, isMiddle = x > 0.66;
    const double numerator = isLarge ? -1.0 : (isMiddle ? x - 1.0 : x);
    const double denominator = isLarge ? x : (isMiddle ? x + 1.0 : 1.0);
    const double offset = isLarge ? 0.5 * M_PI : (isMiddle ? 0.25 * M_PI : 0.0);
    const double t = numerator / denominator, z = t * t;
    const double p =
        (((-8.750608600031904122785e-1 * z - 1.615753718733365076637e1) * z - 7.500855792314704667340e1) * z -
         1.228866684490136173410e2) *
            z -
        6.485021904942025371773e1;
    const double q =
        ((((z + 2.485846490142306297962e1) * z + 1.650270098316988542046e2) * z + 4.328810604912902668951e2) *
             z +
         4.853903996359136964868e2) *
            z +
        1.945506571482613964425e2;
    return (offset + (t * z * (p / q) + t)) * s_degrees;
}

struct HornRow {
    const float *south, *middle, *north;
    unsigned width;
    double cellSizeX, cellSizeY;
    double divisor; ///< of the length of the gradient
};

ZMT_EACH_PROCESSOR void hornDegrees(const HornRow & row, float * values) {
    const float *south = row.south, *middle = row.middle, *north = row.north;
    for (std::size_t i = 1; i + 1 < row.width; ++i) {
        const HornSums sums = HornSums::ofSlope(south, middle, north, i);
        const double x = sums.x / row.cellSizeX, y = sums.y / row.cellSizeY;
        // The cell itself has no weight, but no slope either where it is no number.
        const double unknown = middle[i] - middle[i];
        values[i] = static_cast<float>(arcTangent(std::sqrt(x * x + y * y) / row.divisor) + unknown);
    }
}

ZMT_EACH_PROCESSOR void hornPercent(const HornRow & row, float * values) {
    const float *south = row.south, *middle = row.middle, *north = row.north;
    for (std::size_t i = 1; i + 1 < row.width; ++i) {
        const HornSums sums = HornSums::ofSlope(south, middle, north, i);
        const double x = sums.x / row.cellSizeX, y = sums.y / row.cellSizeY;
        const double unknown = middle[i] - middle[i];
        values[i] = static_cast<float>(100.0 * (std::sqrt(x * x + y * y) / row.divisor) + unknown);
    }
}

} // namespace

SlopeProduct::SlopeProduct(Unit unit, double exaggeration, unsigned windowSize)
    : unit_(unit), exaggeration_(exaggeration), fit_(windowSize) {}

void SlopeProduct::computeRow(const float * const * rows, unsigned width, double cellSizeX, double cellSizeY,
                              float * values) const {
    if (windowSize() == 3 && width > 0) {
        values[0] = values[width - 1] = s_undefined;
        const HornRow row{
            rows[0], rows[1], rows[2], width, cellSizeX, cellSizeY, s_hornCells / exaggeration_};
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
