#pragma once

#include <zmt/raster/relief/reliefproduct.h>

namespace ZMT::RASTER {

/// How bright the ground is in the light of a far lamp, by its angle to the light: from 1, where none falls,
/// to 255, as whole numbers. They are those of GDAL's hillshade by Horn's formula, which rounds roots a
/// little more: about one number in 10 000 differs by 1.
class ShadeProduct : public ReliefProduct {
public:
    /// The light comes from `azimuth` degrees clockwise from north, `elevation` degrees above the horizon.
    /// Heights are multiplied by `exaggeration`.
    explicit ShadeProduct(double azimuth = 315.0, double elevation = 45.0, double exaggeration = 1.0);

    unsigned windowSize() const override { return 3; }
    void computeRow(const float * const * rows, unsigned width, double cellSizeX, double cellSizeY,
                    float * values) const override;

private:
    double toEast_, toNorth_, up_; ///< the direction to the light, of length 1
    double exaggeration_;
};

} // namespace ZMT::RASTER
