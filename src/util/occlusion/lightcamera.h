#pragma once

#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>
#include <nbx/scene/view/camera.h>

namespace ZMT::UTIL {

/// The view from a far light: a parallel projection along its direction.
///
/// (1) All of `lit` lies in the picture, which is not larger than it has to be.
/// (2) Whatever of `casting` stands between the light and `lit` lies in front of it, between the near and the
///     far plane.
class LightCamera {
public:
    using Vector = NBX::Vector3Base<double>;
    using Matrix = NBX::Matrix4x4Base<double>;

    /// `lit` is what the light falls on, `casting` holds that and what throws shadows on it; both are
    /// defined. `direction` leads to the light and is not zero.
    LightCamera(const NBX::Bounds & lit, const NBX::Bounds & casting, const Vector & direction);

    const NBX::SO<NBX::Camera> & camera() const { return camera_; }
    /// From scene to view coordinates.
    const Matrix & view() const { return view_; }
    /// From there to the cube from -1 to 1.
    const Matrix & projection() const { return projection_; }

private:
    NBX::SO<NBX::Camera> camera_;
    Matrix view_, projection_;
};

} // namespace ZMT::UTIL
