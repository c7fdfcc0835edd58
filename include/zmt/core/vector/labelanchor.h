#pragma once

#include <optional>

#include <zmt/raster/featuresource.h>

namespace ZMT::CORE {

/// Where the one label of a feature stands: on the largest of its parts. Areas are larger than lines, and
/// lines than points. Map coordinates; the height is that of the geometry there, of an area that of its first
/// vertex.
struct LabelAnchor {
    using Position = RASTER::VectorFeature::Position;

    Position position;
    /// How large the part is, in units of the map: the length of a line, the side of the square that has as
    /// much room as an area without its holes; 0 for a point.
    double extent = 0.0;

    /// A point itself, the first of several; the place half way along the longest line; the place in the
    /// largest area that is farthest from its borders, to 1 % of that distance: inside, and in no hole. Of
    /// equally large parts the first. An area without room counts as its outline. None without geometry.
    /// O(n) but for very ragged areas, whose places are looked for in a bounded number of steps.
    static std::optional<LabelAnchor> of(const RASTER::VectorFeature & feature);
};

} // namespace ZMT::CORE
