#include "lightcamera.h"

#include <algorithm>

#include <nbx/scene/view/ortho.h>

namespace ZMT::UTIL {

namespace {

/// Of the diagonal: how far away the eye stands, and how deep the view volume is, with the box in its middle:
/// one that began at the eye would end before the box.
constexpr double s_eyeDistance = 4.0, s_depth = 3.0;
/// Of the diagonal: the least width of the picture of a box that is seen edge on.
constexpr double s_leastWidth = 1e-6;

} // namespace

LightCamera::LightCamera(const NBX::Bounds & lit, const NBX::Bounds & casting, const Vector & direction) {
    NBX::Bounds all = casting;
    all += lit;
    const double diagonal = std::max(all.diagonal().length(), 1e-9);
    const Vector center = lit.center();
    const NBX::SO<NBX::LookAt> eye(
        new NBX::LookAt(center + direction.normalized() * (s_eyeDistance * diagonal), center));
    view_ = eye->matrix();
    const NBX::Bounds seen = lit.transform(view_);
    const Vector low = seen.getLLF(), high = seen.getURB(), middle = seen.center();
    const double least = s_leastWidth * diagonal;
    const double halfWidth = std::max(high.x - low.x, least) / 2.0;
    const double halfHeight = std::max(high.y - low.y, least) / 2.0;
    // No point of the box is farther from the centre than the diagonal.
    const double nearest = (s_eyeDistance - s_depth / 2.0) * diagonal;
    const NBX::SO<NBX::Ortho> projection(new NBX::Ortho(middle.x - halfWidth, middle.x + halfWidth,
                                                        middle.y - halfHeight, middle.y + halfHeight, nearest,
                                                        nearest + s_depth * diagonal));
    camera_ = new NBX::Camera(eye.get(), projection.get(), NBX::Camera::S_Global, NBX::Camera::SP_Fill);
    projection_ = camera_->projectionMatrix(1, 1);
}

} // namespace ZMT::UTIL
