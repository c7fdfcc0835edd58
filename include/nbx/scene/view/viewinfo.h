#pragma once

#include <array>

#include <nbx/math/area.h>
#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// The view, asked in one model space: all points and boxes are in the coordinates that the model-view matrix
/// takes to the eye. Immutable.
///
/// (1) `cull` never says -1 for a box that has a point strictly inside the view volume.
/// (2) `cull` says 1 only for boxes entirely inside; a box that touches the border from either side gives 0.
/// (3) `screenDistance2` is above 0 for two points that differ across the view, also behind the eye.
class ViewInfo : public SharedObj {
    NBX_CLASS(ViewInfo, SharedObj)
public:
    /// `modelView` is affine and has an inverse; `projection` takes view coordinates to the cube from -1
    /// to 1.
    ViewInfo(const Matrix4x4Base<double> & modelView, const Matrix4x4Base<double> & projection,
             const Area & viewport);

    /// The eye; for a parallel projection, the origin of the view coordinates.
    const Vector3Base<double> & position() const { return position_; }
    /// Into the picture, length 1.
    const Vector3Base<double> & direction() const { return direction_; }
    /// Distance of the near plane from `position()` along `direction()`; may be negative for a parallel
    /// projection.
    double nearDistance() const { return near_; }

    /// Squared distance in pixels between the projections of `a` and `b`. Points in front of the near plane,
    /// or behind the eye, are first moved on to it along the view, so that they count at full size.
    double screenDistance2(const Vector3Base<double> & a, const Vector3Base<double> & b) const;
    /// Squared distance from `position()` to the nearest point of `box`, 0 from inside. Infinite for an
    /// undefined box.
    double distance2(const Bounds & box) const;
    /// -1: entirely outside the view volume, 1: entirely inside, 0: touches its border. An undefined box is
    /// outside.
    int cull(const Bounds & box) const;

    const Matrix4x4Base<double> & modelView() const { return modelView_; }
    const Matrix4x4Base<double> & projection() const { return projection_; }
    const Area & viewport() const { return viewport_; }

private:
    struct Plane {
        Vector3Base<double> normal; ///< shows inwards
        double offset;
    };

    void findEye();
    void findPlanes();
    void findVolumeBox();
    bool missesVolumeBox(const Bounds & box) const;

    Matrix4x4Base<double> modelView_, projection_, inverseModelView_, inverseProjection_;
    Area viewport_;
    Vector3Base<double> position_, direction_;
    double nearView_ = 0.0; ///< distance of the near plane in view coordinates
    double near_ = 0.0;
    std::array<Plane, 6> planes_;
    Bounds volumeBox_; ///< box of the view volume; undefined when that has no end
};

} // namespace NBX
