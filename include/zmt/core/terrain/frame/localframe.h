#pragma once

#include <nbx/math/bounds.h>

namespace ZMT::CORE {

/// The local coordinates of a `GeometryData` or a `Terrain`, and the way from them to the others: geo
/// coordinates are local ones plus `origin()`, scene coordinates are geo coordinates minus the origin of the
/// scene, which belongs to the process (`GeoTransformation`) and is asked for at each call.
///
/// Undefined boxes stay undefined.
class LocalFrame {
public:
    using Point = NBX::Vector3Base<double>;

    /// `origin` is that of the data, in geo coordinates.
    explicit LocalFrame(const Point & origin) : origin_(origin) {}

    const Point & origin() const { return origin_; }
    /// What scene coordinates are more than local ones: where the local origin lies in the scene.
    Point originInScene() const;

    Point toGeo(const Point & local) const { return local + origin_; }
    NBX::Bounds toGeo(const NBX::Bounds & local) const;
    Point toScene(const Point & local) const { return local + originInScene(); }
    NBX::Bounds toScene(const NBX::Bounds & local) const;
    Point fromGeo(const Point & geo) const { return geo - origin_; }

private:
    Point origin_;
};

} // namespace ZMT::CORE
