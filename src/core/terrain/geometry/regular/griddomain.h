#pragma once

#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>

namespace ZMT::CORE {

/// Whether `domain`, in cells, lies on the grid with at least one cell.
inline bool isDomainOf(const GridData & grid, const NBX::Area & domain) {
    const auto fits = [](int first, unsigned cells, unsigned size) {
        return first >= 0 && unsigned(first) < size && cells >= 1 && cells < size - unsigned(first);
    };
    return fits(domain.getX(), domain.getWidth(), grid.sizeX()) &&
           fits(domain.getY(), domain.getHeight(), grid.sizeY());
}

/// The rectangle of the grid in geo coordinates, with heights of 0: that of its raster, as boxes of a stored
/// grid may be any.
inline NBX::Bounds placeOf(const GridData & grid) {
    const GridData::Point origin = grid.origin(), scale = grid.scale();
    const auto cells = [](unsigned vertices) { return vertices > 0 ? vertices - 1.0 : 0.0; };
    const GridData::Point size(scale.x * cells(grid.sizeX()), 0.0, scale.z * cells(grid.sizeY()));
    return NBX::Bounds(origin, origin + size);
}

/// False for a patch that was made, and reported, without a grid or beside it.
inline bool liesOnItsGrid(const GridPatch & patch) {
    return patch.grid() && isDomainOf(*patch.grid(), patch.domain());
}

/// Positions of the corners of the two triangles of a plain cell, from its lowest vertex, for rays and
/// simplified patches. Pictures divide a cell by the other diagonal, as triangle strips do.
struct CellCorner {
    unsigned x, y;
};
inline constexpr CellCorner cellTriangles[2][3] = {{{0, 0}, {0, 1}, {1, 1}}, {{0, 0}, {1, 1}, {1, 0}}};

} // namespace ZMT::CORE
