#pragma once

#include <nbx/math/vector3base.h>

namespace NBX {

/// Half line in world coordinates. The direction keeps its length.
class Ray {
public:
    Ray() = default;
    Ray(const Vector3Base<double> & origin, const Vector3Base<double> & direction)
        : origin_(origin), direction_(direction) {}

    const Vector3Base<double> & getOrigin() const { return origin_; }
    const Vector3Base<double> & getDirection() const { return direction_; }
    Vector3Base<double> point(double t) const { return origin_ + direction_ * t; }

private:
    Vector3Base<double> origin_, direction_{0.0, 0.0, -1.0};
};

} // namespace NBX
