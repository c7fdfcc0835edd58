#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/scene/attribute/polyattribute.h>

namespace NBX {

/// Cuts away what lies behind a plane. All planes pushed hold together, the first six of them; each is in the
/// frame in which it was pushed.
class ClipPlane : public PolyAttribute {
    NBX_STORED_CLASS(ClipPlane, PolyAttribute)
public:
    /// What can be in force at a time.
    static constexpr unsigned maxPlanes = 6;

    /// Cuts nothing away.
    ClipPlane();
    ClipPlane(const Vector3Base<double> & normal, double distance);

    /// Points with `normal * p + distance >= 0` stay. Takes effect the next time that the attribute is
    /// pushed.
    void setPlane(const Vector3Base<double> & normal, double distance);
    const Vector3Base<double> & getNormal() const { return normal_; }
    double getDistance() const { return distance_; }

    /// The name of this class for all subclasses.
    ID category() const override;
    /// Attributes "normal" (default zero) and "distance" (default 0).
    void serialize(SerializationManager & m) override;

private:
    Vector3Base<double> normal_;
    double distance_ = 0.0;
};

} // namespace NBX
