#include <nbx/scene/view/shiftedprojection.h>

#include <nbx/object/errorhandler.h>
#include <nbx/scene/view/perspective.h>

namespace NBX {

NBX_CLASS_IMPL(ShiftedProjection, Projection)

ShiftedProjection::ShiftedProjection(Projection * projection, double right, double up)
    : projection_(projection), right_(right), up_(up) {
    NBX_CHECK(projection, L"no projection");
    if (!projection_) projection_ = new Perspective();
}

Matrix4x4Base<double> ShiftedProjection::matrix(double aspect) const {
    return projection_->matrix(aspect);
}

Matrix4x4Base<double> ShiftedProjection::matrixInViewport(unsigned width, unsigned height) const {
    return Matrix4x4Base<double>::translation({2.0 * right_ / width, 2.0 * up_ / height, 0.0}) *
           projection_->matrixInViewport(width, height);
}

} // namespace NBX
