// Rasters in degrees are resampled on the grid that is chosen for them; lengths in other units are scaled.

#include <zmt/raster/gdal/rasterwarp.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "gdalsupport.h"
#include "metricgrid.h"

namespace ZMT::RASTER {

namespace {

using Raster = SimpleRasterData<float>;

constexpr float undefinedCell = std::numeric_limits<float>::quiet_NaN();

/// Leaves out the rows behind the poles.
NBX::SO<Raster> withoutRowsBehindPoles(const NBX::SO<Raster> & raster, double unit) {
    const RasterGrid grid = gridOnGlobe(raster->grid(), unit);
    if (grid.cellsY == raster->cellsY()) return raster;
    const auto first = static_cast<std::size_t>(std::lround((grid.minY - raster->minY()) / grid.cellSizeY));
    NBX::SO<Raster> cut(new Raster(grid.cellsX, grid.cellsY, grid.minX, grid.minY, grid.cellSizeX,
                                   grid.cellSizeY, true, undefinedCell));
    const std::size_t width = grid.cellsX;
    std::copy_n(raster->cells() + first * width, width * grid.cellsY, cut->cells());
    return cut;
}

/// The cells as the resampling wants them: NaN is the only undefined value.
NBX::SO<Raster> withNaN(const NBX::SO<Raster> & raster) {
    return !raster->hasUndefValue() || std::isnan(raster->undefValue()) ? raster : copyWithNaN(*raster);
}

/// The raster as it is resampled.
NBX::SO<Raster> prepared(const GeoRaster & source) {
    if (!source.reference.isGeographic) return withNaN(source.raster);
    return withNaN(withoutRowsBehindPoles(source.raster, source.reference.unit));
}

GeoRaster warp(Raster & raster, const std::string & wkt, const MetricGrid & target,
               NBX::Progress * progress) {
    GdalErrorTrap trap;
    const RasterGrid & grid = target.grid;
    const GdalDataset input = wrapRaster(raster, wkt);
    GeoRaster result;
    result.reference = metricReference(target.system);
    NBX::SO<Raster> warped(new Raster(grid.cellsX, grid.cellsY, grid.minX, grid.minY, grid.cellSizeX,
                                      grid.cellSizeY, true, undefinedCell));
    const GdalDataset output = wrapRaster(*warped, result.reference.wkt);
    if (warpBilinear(*input, *output, false, "", progress)) result.raster = warped;
    return result;
}

/// The same projection in metres: the cells stay, their positions are scaled.
GeoRaster scaleLengths(const GeoRaster & source) {
    const Raster & raster = *source.raster;
    const double unit = source.reference.unit;
    NBX::SO<Raster> scaled(new Raster(raster.cellsX(), raster.cellsY(), raster.minX() * unit,
                                      raster.minY() * unit, raster.cellSizeX() * unit,
                                      raster.cellSizeY() * unit, raster.hasUndefValue(),
                                      static_cast<float>(raster.undefValue())));
    std::copy_n(raster.cells(), static_cast<std::size_t>(raster.cellsX()) * raster.cellsY(), scaled->cells());
    return {scaled, metricReference(systemInMetres(source.reference.wkt))};
}

} // namespace

bool RasterWarp::isNeeded(const GeoReference & reference) {
    return reference.isGeoreferenced && !reference.wkt.empty() &&
           (reference.isGeographic || std::abs(reference.unit - 1.0) > 1e-9);
}

GeoRaster RasterWarp::toMetric(const GeoRaster & source, NBX::Progress * progress) {
    if (!source.raster || !isNeeded(source.reference)) return source;
    GdalErrorTrap trap;
    if (!source.reference.isGeographic) return scaleLengths(source);
    const NBX::SO<Raster> raster = prepared(source);
    return warp(*raster, source.reference.wkt, metricGridFor(raster->grid(), source.reference), progress);
}

GeoRaster RasterWarp::toSystem(const GeoRaster & source, const std::string & wkt, NBX::Progress * progress) {
    const std::string & own = source.reference.wkt;
    if (!source.raster || !source.reference.isGeoreferenced || own.empty()) return source;
    GdalErrorTrap trap;
    if (isSameSystem(spatialReference(own), spatialReference(wkt))) return source;
    const NBX::SO<Raster> raster = prepared(source);
    return warp(*raster, own, {wkt, gridIn(wkt, raster->grid(), own)}, progress);
}

} // namespace ZMT::RASTER
