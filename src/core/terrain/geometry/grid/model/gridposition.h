#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include <nbx/math/matrix4x4base.h>

namespace ZMT::CORE::GRID {

/// A position computed from that of a sample differs from it by a few roundings of the map coordinates, which
/// must not make it depend on the samples beside it: these may be undefined.
inline double snappedToSample(double grid, double geo, double origin, double cellSize) {
    const double nearest = std::round(grid);
    const double rounding = 4.0 * std::numeric_limits<double>::epsilon() *
                            ((std::abs(geo) + std::abs(origin)) / std::abs(cellSize) + std::abs(grid));
    return std::abs(grid - nearest) <= rounding ? nearest : grid;
}

/// The position of `geo` in grid space; its height is not looked at. The matrices are those of the terrain.
inline NBX::Vector3Base<double> positionInGrid(const NBX::Matrix4x4Base<double> & grid2geo,
                                               const NBX::Matrix4x4Base<double> & geo2grid,
                                               const NBX::Vector3Base<double> & geo) {
    const auto grid = geo2grid * NBX::Vector3Base<double>(geo.x, 0.0, geo.z);
    return {snappedToSample(grid.x, geo.x, grid2geo(0, 3), grid2geo(0, 0)),
            snappedToSample(grid.y, geo.z, grid2geo(2, 3), grid2geo(2, 1)), 0.0};
}

} // namespace ZMT::CORE::GRID
