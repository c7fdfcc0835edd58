#pragma once

#include <functional>
#include <vector>

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>

namespace NBX {
class PolygonSet;
}

namespace ZMT::CORE {

/// Turns outlines, such as footprints read from a map, into triangles. A ring is closed whether or not it
/// repeats its first point. What lies inside an odd number of rings is filled, so that holes are just further
/// rings, whichever way they turn. x and z span the plane, y is the height.
///
/// The results are indexed triangles, counter-clockwise as seen from above in a map. Where rings cross they
/// are cut by halving, near the crossing. Points that are not finite are left out.
class PolygonTriangulation {
public:
    using Point = NBX::Vector3Base<double>;
    using Ring = std::vector<Point>;

    /// Puts a point of the result in its place; false leaves out what has this corner.
    using Place = std::function<bool(Point &)>;

    /// What `triangulateFinely` makes at most of one set of rings.
    static constexpr unsigned maxPoints = 4000000;

    /// The triangles with the rings' own heights: the constrained Delaunay triangulation. Null when nothing
    /// is filled.
    static NBX::SO<NBX::PolygonSet> triangulate(const std::vector<Ring> & rings);

    /// How many points `triangulateFinely` is taken to make, which decides whether there are too many; 0
    /// where there is nothing to fill. A few more come where outlines lie close to one another.
    static double pointsFor(const std::vector<Ring> & rings, double spacing);

    /// The same with small triangles: no edge of a ring is longer than `spacing`, and there are points inside
    /// at that distance. `place` gives each point its height. A spacing that is not above 0, or that needs
    /// more than `maxPoints`, is reported and gives null.
    static NBX::SO<NBX::PolygonSet> triangulateFinely(const std::vector<Ring> & rings, double spacing,
                                                      const Place & place);
};

} // namespace ZMT::CORE
