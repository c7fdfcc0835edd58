#pragma once

#include <zmt/core/terrain/geometry/tin/polygontriangulation.h>

namespace ZMT::CORE {

class Terrain;

/// Lays outlines, such as lakes read from a map, over the ground of a terrain.
class AreaDraping {
public:
    using Ring = PolygonTriangulation::Ring;

    /// Triangles that follow the ground, `lift` height units above it, `spacing` apart, as
    /// `PolygonTriangulation::triangulateFinely` makes them. Everything in geo coordinates. What has a corner
    /// over undefined ground is left out. Null where nothing is left.
    static NBX::SO<NBX::PolygonSet> drape(const Terrain & terrain, const std::vector<Ring> & rings,
                                          double spacing, double lift);
};

} // namespace ZMT::CORE
