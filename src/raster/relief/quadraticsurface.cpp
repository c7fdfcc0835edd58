#include <zmt/raster/relief/quadraticsurface.h>

#include <cmath>

namespace ZMT::RASTER {

const char * QuadraticSurface::curvatureName(Curvature kind) {
    constexpr const char * names[curvatures] = {"cross-section", "longitudinal", "profile", "plan", "mean"};
    return names[kind];
}

double QuadraticSurface::slope() const {
    return std::atan(std::sqrt(x * x + y * y)) * (180.0 / M_PI);
}

double QuadraticSurface::curvature(Curvature kind) const {
    if (kind == C_Mean) return -(xx + yy);
    const double steepness = x * x + y * y;
    if (steepness == 0.0) return 0.0;
    const double along = xx * x * x + yy * y * y + xy * x * y;
    const double across = yy * x * x + xx * y * y - xy * x * y;
    switch (kind) {
    case C_CrossSection:
        return -2.0 * across / steepness;
    case C_Longitudinal:
        return -2.0 * along / steepness;
    case C_Profile:
        return -2.0 * along / (steepness * std::pow(1.0 + steepness, 1.5));
    default:
        return -2.0 * across / std::pow(steepness, 1.5);
    }
}

} // namespace ZMT::RASTER
