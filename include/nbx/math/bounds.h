#pragma once

#include <limits>

#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>

namespace NBX {

class SerializationManager;

/// Axis-aligned box in world units; undefined until it is given a point. Touching counts as inside.
class Bounds {
public:
    /// The undefined box.
    Bounds() = default;
    explicit Bounds(const Vector3Base<double> & point) : llf_(point), urb_(point) {}
    /// The smallest box with both corners, in any order.
    Bounds(const Vector3Base<double> & a, const Vector3Base<double> & b);

    bool isDefined() const { return !(llf_.x > urb_.x); }
    /// Lower left front corner: the least coordinates. Infinite for an undefined box, as is the other one.
    const Vector3Base<double> & getLLF() const { return llf_; }
    /// Upper right back corner: the largest coordinates.
    const Vector3Base<double> & getURB() const { return urb_; }
    Vector3Base<double> center() const { return (llf_ + urb_) * 0.5; }
    Vector3Base<double> diagonal() const { return urb_ - llf_; }
    /// The point at `u`, `v`, `w`, from 0 to 1 along x, y, z.
    Vector3Base<double> point(double u, double v, double w) const;

    /// This box grown by `margin` on every side; an undefined box stays undefined.
    Bounds expand(double margin) const;
    /// Undefined when the boxes do not meet.
    Bounds intersection(const Bounds & other) const;
    /// False when either is undefined.
    bool intersects(const Bounds & other) const;
    bool containsPoint(const Vector3Base<double> & p) const;
    /// The same test with the two axes `a` and `b` (0 to 2) alone.
    bool containsPointInPlane(const Vector3Base<double> & p, unsigned a, unsigned b) const;
    /// The point of the box that is nearest to `p`.
    Vector3Base<double> nearestPoint(const Vector3Base<double> & p) const;
    /// The box of the eight transformed corners.
    Bounds transform(const Matrix4x4Base<double> & m) const;

    Bounds & operator+=(const Vector3Base<double> & p);
    Bounds & operator+=(const Bounds & other);
    /// Two undefined boxes are equal.
    bool operator==(const Bounds & other) const;

    /// Attributes "defined", "llf", "urb".
    void serialize(SerializationManager & m);

private:
    static constexpr double s_infinity = std::numeric_limits<double>::infinity();

    // An undefined box is turned inside out.
    Vector3Base<double> llf_{s_infinity, s_infinity, s_infinity};
    Vector3Base<double> urb_{-s_infinity, -s_infinity, -s_infinity};
};

} // namespace NBX
