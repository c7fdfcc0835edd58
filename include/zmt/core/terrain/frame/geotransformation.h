#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/bounds.h>

namespace ZMT::CORE {

/// The shift of the process between geo coordinates, as maps give them, and scene coordinates, which are
/// small enough for single precision: scene = geo - origin.
///
/// The origin is set once, before scenes are built; there is no lock, and shapes that cached a position
/// stay where they are.
class GeoTransformation {
public:
    using Point = NBX::Vector3Base<double>;
    using Points = NBX::Iterator<Point>;

    /// `origin` is the scene's origin in geo coordinates; zero at start.
    static void setNBXOrigin(const Point & origin);

    static Point nbx2geoOffset();
    static Point geo2nbxOffset();

    static Point geo2nbxTf(const Point & p);
    static Point nbx2geoTf(const Point & p);
    /// An undefined box is returned as it is.
    static NBX::Bounds geo2nbxTf(const NBX::Bounds & box);
    static NBX::Bounds nbx2geoTf(const NBX::Bounds & box);
    /// A view of `points` that shifts on every access, with the origin as it is then. Keeps `points`.
    static NBX::SO<Points> geo2nbxTf(const NBX::SO<Points> & points);
    static NBX::SO<Points> nbx2geoTf(const NBX::SO<Points> & points);
};

} // namespace ZMT::CORE
