#include <zmt/raster/gdal/planprojection.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "gdalsupport.h"
#include "metricgrid.h"

namespace ZMT::RASTER {

struct PlanProjection::Impl {
    std::unique_ptr<OGRCoordinateTransformation> transformation; ///< null where nothing is to be done
};

PlanProjection::PlanProjection(const GeoRaster & degrees) : impl_(std::make_unique<Impl>()) {
    const GdalErrorTrap trap;
    const RasterGrid grid = gridOnGlobe(degrees.raster->grid(), degrees.reference.unit);
    reference_ = metricReference(metricGridFor(grid, degrees.reference).system);
    const OGRSpatialReference source = spatialReference(degrees.reference.wkt);
    impl_->transformation = newTransformation(&source, reference_.wkt, "");
}

PlanProjection::~PlanProjection() = default;

bool PlanProjection::project(std::size_t count, double * x, double * y) const {
    if (!impl_->transformation) return true;
    const GdalErrorTrap trap;
    constexpr std::size_t s_piece = 4096;
    std::vector<int> done(s_piece);
    for (std::size_t first = 0; first < count; first += s_piece) {
        const std::size_t size = std::min(s_piece, count - first);
        impl_->transformation->Transform(int(size), x + first, y + first, nullptr, done.data());
        for (std::size_t i = 0; i < size; ++i)
            if (!done[i] || !std::isfinite(x[first + i]) || !std::isfinite(y[first + i])) return false;
    }
    return true;
}

} // namespace ZMT::RASTER
