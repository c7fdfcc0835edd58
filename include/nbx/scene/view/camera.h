#pragma once

#include <vector>

#include <nbx/math/ray.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/monoattribute.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/projection.h>

namespace NBX {

/// The view of a scene: an eye and a projection.
class Camera : public MonoAttribute {
    NBX_STORED_CLASS(Camera, MonoAttribute)
public:
    enum Scope {
        S_Local = 0,  ///< holds for what follows in its node
        S_Global = 1, ///< holds for the whole canvas, wherever it stands in the root nodes
    };
    enum SizePolicy {
        SP_Fill = 0,       ///< the picture follows the aspect of the viewport
        SP_KeepAspect = 1, ///< the picture is that of a square viewport, stretched
    };

    Camera();
    /// A null eye or projection is reported, and a default one stands in.
    Camera(LookAt * eye, Projection * projection, Scope scope = S_Local, SizePolicy policy = SP_Fill);

    /// A view, in local scope, whose x and y are pixels of the viewport: 0, 0 is its lower left corner, and
    /// the middle of a pixel lies at one half. Seen is what has a z from `near` to `far`, which may be the
    /// smaller one; what lies closer to `near` hides what lies behind it.
    static SO<Camera> newPixelCoordsCamera(double near, double far);
    /// The same with the box from `left` to `right` in x and from `bottom` to `top` in y filling the
    /// viewport.
    static SO<Camera> newNormalizedDeviceCoordsCamera(double left, double right, double bottom, double top,
                                                      double near, double far);

    LookAt * getLookAt() const { return eye_.get(); }
    Projection * getProjection() const { return projection_.get(); }
    Scope getScope() const { return scope_; }
    SizePolicy getSizePolicy() const { return policy_; }
    void setLookAt(LookAt * eye);
    void setProjection(Projection * projection);

    Matrix4x4Base<double> viewMatrix() const { return eye_->matrix(); }
    /// For a viewport of `width` by `height` pixels.
    Matrix4x4Base<double> projectionMatrix(unsigned width, unsigned height) const;
    /// What is seen at a place of a picture of `width` by `height` pixels; 0, 0 is its lower left corner, and
    /// the middle of a pixel lies at one half. The ray begins at the near plane, and meets the far plane at
    /// parameter 1.
    Ray rayThrough(double x, double y, unsigned width, unsigned height) const;

    void acceptChildren(std::vector<Visitable *> & children) const override;
    /// Attributes "lookAt", "projection", "scope", "sizePolicy".
    void serialize(SerializationManager & m) override;

private:
    SO<LookAt> eye_;
    SO<Projection> projection_;
    Scope scope_ = S_Local;
    SizePolicy policy_ = SP_Fill;
};

} // namespace NBX
