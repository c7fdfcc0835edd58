#pragma once

#include <cstdint>

#include <nbx/math/ray.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/sharedobj.h>

namespace ZMT::CORE::GRID {

/// The heights of one tile: 2^L + 1 samples along each side, and for each border the heights that the tiles
/// above see along it. Heights are numbers from 1 to 65535, 0 stands for none. Immutable; any thread reads.
class GridTerrainTileData : public NBX::SharedObj {
    NBX_CLASS(GridTerrainTileData, NBX::SharedObj)
public:
    using Point = NBX::Vector3Base<double>;

    /// L: the tile has 2^L cells along each side.
    virtual unsigned tileLevel() const = 0;
    /// The distance of two samples in finest cells, 2^d.
    virtual unsigned step() const = 0;
    /// Position of the first sample, in units of `step()`.
    virtual unsigned tileX() const = 0;
    virtual unsigned tileY() const = 0;
    /// Samples along a side, 2^L + 1.
    virtual unsigned cells() const = 0;
    /// The sample at column `x`, row `y`.
    virtual std::uint16_t value(unsigned x, unsigned y) const = 0;
    /// Rows of a border's table, L.
    virtual unsigned borderLODs() const = 0;
    /// Values in row `k`, 2^(L-k) + 1.
    virtual unsigned borderLODValues(unsigned k) const = 0;
    /// Value `i` of row `k` of a border, 0 to 3: the height that the tile `k` levels above sees there. Row 0
    /// is the tile's own edge.
    virtual std::uint16_t borderValue(unsigned border, unsigned k, unsigned i) const = 0;

    /// All samples row by row, then the borders' tables, each row by row, where they lie together in memory;
    /// null otherwise. For loops over all of them.
    virtual const std::uint16_t * samples() const { return nullptr; }

    /// The point where `ray`, in grid space, first meets the triangles of the tile. False when it misses.
    bool calculateRayIntersection(const NBX::Ray & ray, Point & point) const;
    /// The height of the triangles, in quantised units, at a position in grid space; negative infinity
    /// beside the tile and where a sample of the cell is undefined.
    double calculateVerticalRayIntersection(double x, double y) const;
};

} // namespace ZMT::CORE::GRID
