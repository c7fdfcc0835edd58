#pragma once

#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/box.h>

namespace ZMT::CORE {

/// A node that moves and scales its content into the middle of a given box. The vertical scale is never
/// larger than the other two.
///
/// The fit is computed when it is first needed after a change of this node, or every time with dynamics or
/// while there is no content: changes of the content are not noticed otherwise. Without content, without a
/// target box or with an undefined one the content stays where it is. An axis along which the content has no
/// width gets the largest finite scale, unless another one counts: that takes points beside the middle out of
/// all numbers, so that content of no width at all, or with a flat side and no `keepAspect`, should not be
/// given.
///
/// The target box is no part of the scene: it is not painted, and visitors do not meet it.
class TAdjuster : public NBX::SceneThing {
    NBX_STORED_CLASS(TAdjuster, NBX::SceneThing)
public:
    /// Appends itself to `parent`, unless that is null. `volume` is the target box, in the frame of the
    /// parent; with `keepAspect` all axes get the same scale; `dynamic` computes the fit anew at every use.
    TAdjuster(NBX::SceneThing * parent, NBX::Box * volume, bool keepAspect, bool dynamic);

    const NBX::SO<NBX::Box> & getVolume() const { return volume_; }
    void setVolume(NBX::Box * volume);
    bool getKeepAspect() const { return keepAspect_; }
    void setKeepAspect(bool keepAspect);
    bool getDynamics() const { return dynamic_; }
    void setDynamics(bool dynamic);

    void modified() override;
    void evaluate(NBX::Engine * engine) override;
    /// The box of the fitted content, in the frame of the parent; undefined without content. `engine` must
    /// not be null.
    NBX::Bounds boundingBox(NBX::Engine * engine) override;
    void serialize(NBX::SerializationManager & m) override;

protected:
    /// Without a box, for reading: the content stays as it is.
    TAdjuster();

private:
    bool needsUpdate() const { return !valid_ || dynamic_; }
    void update(NBX::Engine * engine);

    NBX::Matrix4x4Base<double> matrix_;
    NBX::SO<NBX::Box> volume_;
    bool keepAspect_ = true;
    bool dynamic_ = false;
    /// Of the content after fitting.
    NBX::Bounds bounds_;
    /// The matrix is current.
    bool valid_ = false;
};

} // namespace ZMT::CORE
