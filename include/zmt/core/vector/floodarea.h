#pragma once

#include <vector>

#include <nbx/math/vector3base.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace ZMT::CORE {

/// The ground of a grid that lies at a height or below it, seen from above, whether water finds a way there
/// or not. The surface is that of pictures at full detail. Without state, on any thread.
///
/// (1) Of each triangle of the grid, all at the height or below is covered, and nothing else. A plain cell is
///     divided from the vertex at (x + 1, y) to that at (x, y + 1).
/// (2) A triangle of the grid with an undefined corner is not covered.
/// (3) The triangles do not overlap, and two of them share a whole edge, a corner or nothing: whatever maps
///     the plan linearly shows neither gaps nor seams. Only where cells have shapes of their own may a corner
///     lie on the edge of another triangle.
/// (4) Corners are vertices of the grid, or lie on its edges where these cross the height; so the border has
///     exactly that height, unless it is that of the grid or of undefined ground.
class FloodArea {
public:
    using Position = NBX::Vector3Base<double>;

    /// Corners of triangles, three each, in geo coordinates, with the height of the ground as y. Of level
    /// ground there are a few triangles for each row of cells; O(cells) time, and a bit for each. Nothing for
    /// a `height` that is not a number.
    static std::vector<Position> below(const GridData & grid, double height);
};

} // namespace ZMT::CORE
