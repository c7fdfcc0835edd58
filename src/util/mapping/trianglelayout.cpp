#include "trianglelayout.h"

#include <algorithm>

namespace ZMT::UTIL {

namespace {

using Vector = TriangleLayout::Vector;

/// The number of the first corner of the longest edge; the later one of equally long ones.
unsigned longestEdge(const std::array<Vector, 3> & p) {
    const double d0 = (p[1] - p[0]).length2(), d1 = (p[2] - p[1]).length2(), d2 = (p[0] - p[2]).length2();
    if (d0 > d1 && d0 > d2) return 0;
    return d1 > d2 ? 1 : 2;
}

/// At least the fewest, at most `most`; the fewest where `length` is not a number.
int texelsOf(double length, int most) {
    if (!(length > TriangleLayout::s_leastTexels)) return TriangleLayout::s_leastTexels;
    return static_cast<int>(
        std::min(length, static_cast<double>(std::max(most, TriangleLayout::s_leastTexels))));
}

} // namespace

TriangleLayout::TriangleLayout(const std::array<Vector, 3> & p, double texelsPerUnit, int maxSize) {
    const unsigned i = longestEdge(p), j = (i + 1) % 3, k = (j + 1) % 3;
    const Vector a = p[j] - p[i], b = p[k] - p[i];
    const double length2 = a.dot(a);
    const double s = length2 > 0.0 ? b.dot(a) / length2 : 0.0;
    const Vector foot = p[i] + a * s;
    coordinates[i] = Vector(0.0, 0.0, 0.0);
    coordinates[j] = Vector(1.0, 0.0, 0.0);
    // Roundings and what is not finite stay on the base.
    coordinates[k] = Vector(s > 0.0 ? std::min(s, 1.0) : 0.0, 1.0, 0.0);

    constexpr int margins = 2 * s_margin;
    const int inner = std::max(maxSize, margins) - margins;
    width = texelsOf(a.length() * texelsPerUnit, inner);
    height = texelsOf((p[k] - foot).length() * texelsPerUnit, inner);
    const double sx = static_cast<double>(width) / (width + margins);
    const double sy = static_cast<double>(height) / (height + margins);
    for (Vector & c : coordinates) {
        c.x = (c.x - 0.5) * sx + 0.5;
        c.y = (c.y - 0.5) * sy + 0.5;
    }
    width += margins;
    height += margins;
}

} // namespace ZMT::UTIL
