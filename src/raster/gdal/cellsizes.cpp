#include <zmt/raster/gdal/cellsizes.h>

#include <cmath>
#include <limits>

#include <zmt/raster/gdal/coordinatesystem.h>

namespace ZMT::RASTER {

namespace {

/// In metres.
CellSize sizeAt(const CoordinateSystem & system, const RasterGrid & grid, double x, double y) {
    constexpr double nothing = std::numeric_limits<double>::quiet_NaN();
    const auto place = system.toLonLat({x, y});
    const auto axes = place ? system.axesAt(*place) : std::nullopt;
    if (!axes) return {nothing, nothing};
    return {grid.cellSizeX / std::abs(axes->east.x), grid.cellSizeY / std::abs(axes->north.y)};
}

} // namespace

std::vector<CellSize> CellSizes::of(const RasterGrid & grid, const GeoReference & reference,
                                    double heightUnit) {
    const double unit = reference.isGeoreferenced ? reference.unit : 1.0;
    // Heights are often in the unit of the map, whose own numbers are then left alone.
    const double scale = unit == heightUnit ? 1.0 : unit / heightUnit;
    std::vector<CellSize> sizes(grid.cellsY, {grid.cellSizeX * scale, grid.cellSizeY * scale});
    if (!reference.isGeographic || reference.wkt.empty()) return sizes;
    const CoordinateSystem system(reference.wkt);
    const double middle = grid.minX + (grid.cellsX - 1.0) * 0.5 * grid.cellSizeX;
    for (unsigned row = 0; row < grid.cellsY; ++row) {
        const CellSize metres = sizeAt(system, grid, middle, grid.minY + row * grid.cellSizeY);
        sizes[row] = {metres.x / heightUnit, metres.y / heightUnit};
    }
    return sizes;
}

} // namespace ZMT::RASTER
