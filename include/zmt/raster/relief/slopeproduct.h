#pragma once

#include <zmt/raster/relief/quadraticfit.h>
#include <zmt/raster/relief/reliefproduct.h>

namespace ZMT::RASTER {

/// How steep the ground is, from the gradient of `QuadraticFit`. In windows of 3 by 3 cells the numbers are
/// those of GDAL's slope by Horn's formula, to the bit but for the rounding of an arc tangent.
class SlopeProduct : public ReliefProduct {
public:
    enum Unit {
        U_Degrees,
        U_Percent, ///< 100 is 45 degrees
    };

    /// Heights are multiplied by `exaggeration`.
    explicit SlopeProduct(Unit unit = U_Degrees, double exaggeration = 1.0, unsigned windowSize = 3);

    unsigned windowSize() const override { return fit_.windowSize(); }
    void computeRow(const float * const * rows, unsigned width, double cellSizeX, double cellSizeY,
                    float * values) const override;

private:
    Unit unit_;
    double exaggeration_;
    QuadraticFit fit_;
};

} // namespace ZMT::RASTER
