#pragma once

#include <nbx/object/so.h>
#include <nbx/scene/view/projection.h>

namespace NBX {

/// Another projection whose picture is shifted by parts of pixels, as for pictures that are averages of
/// several.
class ShiftedProjection : public Projection {
    NBX_CLASS(ShiftedProjection, Projection)
public:
    /// Keeps `projection`, of which a null one is reported, and a default one stands in. What is seen in the
    /// middle of a pixel of it is then seen `right` and `up`, both in pixels, from there.
    ShiftedProjection(Projection * projection, double right, double up);

    /// Without the shift, as the pixels are not known.
    Matrix4x4Base<double> matrix(double aspect) const override;
    Matrix4x4Base<double> matrixInViewport(unsigned width, unsigned height) const override;

private:
    SO<Projection> projection_;
    double right_, up_;
};

} // namespace NBX
