#pragma once

#include <nbx/math/vector3base.h>

namespace NBX {

/// Whether the half line from `origin` along `direction` meets the triangle; its border and both of its sides
/// count, and one without area is never met. `t` becomes the parameter along `direction`, 0 or more where the
/// triangle is met.
///
/// `T` is `double`, or a vector of them for several triangles at once, of which each gets what it would get
/// by itself, to the bit. `isAny` tells whether one of the conditions holds that comparisons of `T` give.
// T. Möller, B. Trumbore, "Fast, Minimum Storage Ray/Triangle Intersection", 1997, for both sides. Its border
// is widened by rounding, so that a ray does not slip through the edge that two triangles share.
template <class T, class IsAny>
auto meetsTriangle(const Vector3Base<T> & origin, const Vector3Base<T> & direction, const Vector3Base<T> & a,
                   const Vector3Base<T> & b, const Vector3Base<T> & c, T & t, const IsAny & isAny) {
    constexpr double border = 1e-12;
    const Vector3Base<T> edge1 = b - a, edge2 = c - a;
    const Vector3Base<T> p = direction.cross(edge2);
    const T det = edge1.dot(p);
    const Vector3Base<T> toOrigin = origin - a;
    const T u = toOrigin.dot(p) / det;
    const auto isBetween = (det != 0.0) & (u >= -border) & (u <= 1.0 + border);
    if (!isAny(isBetween)) return isBetween;
    const Vector3Base<T> q = toOrigin.cross(edge1);
    const T v = direction.dot(q) / det;
    const auto isWithin = isBetween & (v >= -border) & (u + v <= 1.0 + border);
    if (!isAny(isWithin)) return isWithin;
    t = edge2.dot(q) / det;
    return isWithin & (t >= 0.0);
}

} // namespace NBX
