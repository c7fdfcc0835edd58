#pragma once

#include <vector>

#include <nbx/text/fontface.h>

namespace NBX {

/// A straight piece of an outline, in texels.
struct OutlinePiece {
    double x0, y0, x1, y1;
};

/// The distances of a glyph from its closed outline, in the place that this takes; `left` and `bottom` are
/// whole texels. What the outline turns round, either way, is within. Without pieces it is empty.
FontFace::DistanceField distanceFieldOf(const std::vector<OutlinePiece> & outline);

} // namespace NBX
