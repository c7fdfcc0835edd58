#pragma once

#include <zmt/raster/relief/quadraticfit.h>
#include <zmt/raster/relief/reliefproduct.h>

namespace ZMT::RASTER {

/// How the ground bends: one of the curvatures of `QuadraticSurface`, in 1 / map unit.
class CurvatureProduct : public ReliefProduct {
public:
    /// Heights are multiplied by `exaggeration`.
    explicit CurvatureProduct(QuadraticSurface::Curvature kind, double exaggeration = 1.0,
                              unsigned windowSize = 3);

    unsigned windowSize() const override { return fit_.windowSize(); }
    void computeRow(const float * const * rows, unsigned width, double cellSizeX, double cellSizeY,
                    float * values) const override;

private:
    QuadraticSurface::Curvature kind_;
    double exaggeration_;
    QuadraticFit fit_;
};

} // namespace ZMT::RASTER
