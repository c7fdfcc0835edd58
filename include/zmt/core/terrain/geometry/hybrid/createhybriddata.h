#pragma once

#include <zmt/core/terrain/geometry/hybrid/createhybridimpl.h>

namespace ZMT::CORE {

/// Stamps points, edges and triangles into a grid, which then has them as vertices and edges of its cells.
class CreateHybridData {
public:
    /// One to three points in geo coordinates: a point, an edge, or a triangle.
    using Feature = std::vector<NBX::Vector3Base<double>>;

    /// The heights of `grid` with the features, which are any sequence of `Feature`; micro-structures of
    /// `grid` itself are not taken over. A triangle also lowers and lifts the vertices of the grid beneath it
    /// to its plane, but no other feature inside it. Where features meet in a point, the height of the last
    /// one counts; at a vertex of the grid where two edges cross, that of the later of the two. Null,
    /// reported, without a grid.
    ///
    /// Points and the ends of edges keep their coordinates. Where edges are cut, at grid lines and where they
    /// cross, the cut is placed to 2^-30 of a cell, and edges are bent by as much to avoid new crossings.
    /// Heights at vertices of the grid are rounded to `float`.
    ///
    /// A point must lie inside the rectangle of the grid; its lower and left border count as inside, its
    /// upper and right one do not. A feature with a point elsewhere, one that is not finite, or another
    /// number of points, is reported and left out, as is a triangle with collinear corners.
    ///
    /// O(n log n) for n pieces of features cut at grid lines, and the square of the pieces in one cell.
    template <class Features>
    static NBX::SO<HybridData> create(const NBX::SO<GridData> & grid, const Features & features) {
        return TCreateHybrid_Impl<Features>(grid, features).result();
    }
};

} // namespace ZMT::CORE
