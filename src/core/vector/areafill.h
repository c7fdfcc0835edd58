#pragma once

#include <vector>

#include "planwindow.h"

namespace ZMT::CORE {

/// Turns areas into the pixels whose middles lie inside.
class AreaFill {
public:
    using Ring = std::vector<PlanPoint>;

    /// A square of `size` by `size` pixels over a rectangle around the origin.
    AreaFill(double halfX, double halfZ, unsigned size) : halfX_(halfX), halfZ_(halfZ), size_(size) {}

    /// Appends the corners of triangles, three floats each, x, 0 and z, that cover the pixels inside an odd
    /// number of `rings`, each of them once. O(n + r), with the number r of rows that edges cross.
    void fill(const std::vector<Ring> & rings, std::vector<float> & vertices) const;

private:
    double halfX_, halfZ_;
    unsigned size_;
};

} // namespace ZMT::CORE
