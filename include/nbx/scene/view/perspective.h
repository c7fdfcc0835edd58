#pragma once

#include <nbx/scene/view/projection.h>

namespace NBX {

/// Central projection that is symmetric about the view direction.
class Perspective : public Projection {
    NBX_STORED_CLASS(Perspective, Projection)
public:
    /// `fieldOfViewDegrees` spans the height of the picture. Bad values are reported: the angle must lie
    /// between 0 and 180, and `0 < nearDistance < farDistance`.
    explicit Perspective(double fieldOfViewDegrees = 45.0, double nearDistance = 1.0,
                         double farDistance = 1000.0);

    double getFieldOfView() const { return fieldOfView_; }
    double getNear() const { return near_; }
    double getFar() const { return far_; }
    void setFieldOfView(double degrees);
    void setNear(double distance);
    void setFar(double distance);

    Matrix4x4Base<double> matrix(double aspect) const override;
    /// Attributes "fieldOfView", "near", "far".
    void serialize(SerializationManager & m) override;

private:
    void set(double & field, double value);

    double fieldOfView_, near_, far_;
};

} // namespace NBX
