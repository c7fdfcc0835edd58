#pragma once

#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// Where the eye stands and looks, in world coordinates. The world is left-handed, as maps with heights are:
/// x to the east, y upwards, z to the north. So the right border of the picture lies towards `up x forward`,
/// and the matrix turns the left-handed world into right-handed view coordinates (its determinant is -1).
class LookAt : public SharedObj {
    NBX_STORED_CLASS(LookAt, SharedObj)
public:
    /// `up` shows to the upper border of the picture. Where it is parallel to the view, another axis stands
    /// in for it.
    explicit LookAt(const Vector3Base<double> & from = {0.0, 0.0, -1.0}, const Vector3Base<double> & to = {},
                    const Vector3Base<double> & up = {0.0, 1.0, 0.0});

    const Vector3Base<double> & getFrom() const { return from_; }
    const Vector3Base<double> & getTo() const { return to_; }
    const Vector3Base<double> & getUp() const { return up_; }
    void setFrom(const Vector3Base<double> & from);
    void setTo(const Vector3Base<double> & to);
    void setUp(const Vector3Base<double> & up);

    /// World to view coordinates: the eye at the origin, looking along -z, y upwards.
    Matrix4x4Base<double> matrix() const;

    /// Attributes "from", "to", "up".
    void serialize(SerializationManager & m) override;

private:
    void set(Vector3Base<double> & field, const Vector3Base<double> & value);

    Vector3Base<double> from_, to_, up_;
};

} // namespace NBX
