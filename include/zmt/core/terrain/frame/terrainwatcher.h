#pragma once

#include <atomic>

#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/monoattribute.h>
#include <nbx/scene/view/viewinfo.h>

namespace ZMT::CORE {

/// Keeps the view in which the terrains behind it were last painted. It stands directly in front of a
/// terrain, behind the transformations of its node. One that stands further in takes its place there.
///
/// Written on the rendering thread. Whoever reads on another one freezes the watcher first, and waits until
/// the frame in which that was done has ended.
class TerrainWatcher : public NBX::MonoAttribute {
    NBX_CLASS(TerrainWatcher, NBX::MonoAttribute)
public:
    using Matrix = NBX::Matrix4x4Base<double>;

    TerrainWatcher() : NBX::MonoAttribute(true) {}

    /// The view in the frame of the terrain; null before the first painting.
    const NBX::SO<const NBX::ViewInfo> & viewinfo() const { return viewinfo_; }
    /// From the frame of the terrain to view coordinates. Like the other matrices the identity before the
    /// first painting.
    const Matrix & modelview() const { return modelview_; }
    const Matrix & inverseModelview() const { return inverseModelview_; }
    /// From view coordinates to the cube from -1 to 1.
    const Matrix & projection() const { return projection_; }
    const Matrix & inverseProjection() const { return inverseProjection_; }
    /// The camera's: from the scene to view coordinates.
    const Matrix & orientation() const { return orientation_; }
    const Matrix & inverseOrientation() const { return inverseOrientation_; }

    /// While frozen, the watcher keeps the view that it has.
    void setFreeze(bool freeze) { freeze_ = freeze; }
    bool getFreeze() const { return freeze_; }

    /// The name of this class for all subclasses.
    NBX::ID category() const override;

private:
    friend class TerrainWatcherPainter;

    NBX::SO<const NBX::ViewInfo> viewinfo_;
    Matrix modelview_, inverseModelview_;
    Matrix projection_, inverseProjection_;
    Matrix orientation_, inverseOrientation_;
    std::atomic<bool> freeze_ = false;
};

} // namespace ZMT::CORE
