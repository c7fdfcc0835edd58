#pragma once

#include <nbx/scene/view/projection.h>

namespace NBX {

/// Parallel projection of a box. It fills the viewport whatever the viewport's aspect.
class Ortho : public Projection {
    NBX_STORED_CLASS(Ortho, Projection)
public:
    /// In view coordinates; `nearDistance` and `farDistance` are measured from the eye along the view.
    explicit Ortho(double left = -1.0, double right = 1.0, double bottom = -1.0, double top = 1.0,
                   double nearDistance = -1.0, double farDistance = 1.0);

    double getLeft() const { return left_; }
    double getRight() const { return right_; }
    double getBottom() const { return bottom_; }
    double getTop() const { return top_; }
    double getNear() const { return near_; }
    double getFar() const { return far_; }

    Matrix4x4Base<double> matrix(double aspect) const override;
    /// Attributes "left", "right", "bottom", "top", "near", "far".
    void serialize(SerializationManager & m) override;

private:
    double left_, right_, bottom_, top_, near_, far_;
};

} // namespace NBX
