#pragma once

#include <nbx/scene/view/projection.h>

namespace NBX {

/// Parallel projection whose view coordinates are pixels of the viewport, from its lower left corner.
class PixelProjection : public Projection {
    NBX_STORED_CLASS(PixelProjection, Projection)
public:
    /// Distances from the eye along the view, which differ. The near one may be the larger one.
    explicit PixelProjection(double nearDistance = -1.0, double farDistance = 1.0);

    double getNear() const { return near_; }
    double getFar() const { return far_; }

    /// As if the viewport were one pixel high.
    Matrix4x4Base<double> matrix(double aspect) const override;
    Matrix4x4Base<double> matrixInViewport(unsigned width, unsigned height) const override;
    /// Attributes "near", "far".
    void serialize(SerializationManager & m) override;

private:
    Matrix4x4Base<double> matrixOfBox(double width, double height) const;

    double near_, far_;
};

} // namespace NBX
