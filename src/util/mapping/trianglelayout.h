#pragma once

#include <array>

#include <nbx/math/vector3base.h>

namespace ZMT::UTIL {

/// The place of one triangle on a small rectangle of its own: its longest edge lies along the lower side, the
/// third corner on the upper one.
///
/// (1) All coordinates lie within the rectangle, at least 2 texels from its sides.
struct TriangleLayout {
    using Vector = NBX::Vector3Base<double>;

    /// Texels at each side that belong to nobody else.
    static constexpr int s_margin = 2;
    /// Fewest texels of a triangle, without the margin.
    static constexpr int s_leastTexels = 16;

    /// Of the corners `p`, at most `maxSize` texels wide and high with the margin. A triangle without size,
    /// or one that is not finite, has the fewest texels.
    TriangleLayout(const std::array<Vector, 3> & p, double texelsPerUnit, int maxSize);

    int width, height;                 ///< of the rectangle, with the margin
    std::array<Vector, 3> coordinates; ///< of the corners, in their order, from 0 to 1 in the rectangle
};

} // namespace ZMT::UTIL
