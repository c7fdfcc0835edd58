#pragma once

#include <zmt/core/terrain/geometry/hybrid/createhybridimpl.h>

namespace ZMT::CORE {

/// Stamps points, edges and triangles into a grid, which then contains them exactly.
class CreateHybridData {
public:
    /// One to three points in geo coordinates: a point, an edge, or a triangle.
    using Feature = std::vector<NBX::Vector3Base<double>>;

    /// The heights of `grid` with the features, which are any sequence of `Feature`; micro-structures of
    /// `grid` itself are not taken over. A triangle also lowers and lifts the grid beneath it to its plane;
    /// where features meet, the height of the last one counts. Null, reported, without a grid.
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
