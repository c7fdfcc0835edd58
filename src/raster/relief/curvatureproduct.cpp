#include <zmt/raster/relief/curvatureproduct.h>

#include <vector>

namespace ZMT::RASTER {

CurvatureProduct::CurvatureProduct(QuadraticSurface::Curvature kind, double exaggeration, unsigned windowSize)
    : kind_(kind), exaggeration_(exaggeration), fit_(windowSize) {}

void CurvatureProduct::computeRow(const float * const * rows, unsigned width, double cellSizeX,
                                  double cellSizeY, float * values) const {
    std::vector<QuadraticSurface> surfaces(width);
    fit_.fitRow(rows, width, cellSizeX, cellSizeY, surfaces.data());
    const double z = exaggeration_;
    for (unsigned i = 0; i < width; ++i) {
        const QuadraticSurface & s = surfaces[i];
        values[i] = static_cast<float>(
            QuadraticSurface{s.xx * z, s.yy * z, s.xy * z, s.x * z, s.y * z}.curvature(kind_));
    }
}

} // namespace ZMT::RASTER
