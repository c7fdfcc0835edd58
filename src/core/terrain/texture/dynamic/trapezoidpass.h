#pragma once

#include <nbx/gl/context/enginegl.h>
#include <nbx/math/algorithmimpl.h>
#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>
#include <nbx/scene/view/viewinfo.h>

namespace ZMT::CORE {

/// What is drawn into a trapezoid, and the view for which that is done: what textures are asked with. In
/// force as long as it lives; passes may lie within each other. Render thread.
class TrapezoidPass {
public:
    using Matrix = NBX::Matrix4x4Base<double>;
    using Loop = NBX::AlgorithmImpl::Loop;

    TrapezoidPass();
    ~TrapezoidPass();
    TrapezoidPass(const TrapezoidPass &) = delete;
    TrapezoidPass & operator=(const TrapezoidPass &) = delete;

    /// The innermost one; null for none.
    static TrapezoidPass * current();

    /// What of a box, in plan, lies in the trapezoid, at height 0: a convex loop, empty for nothing. Single
    /// precision would not do for boxes that reach far beyond it.
    Loop visiblePlan(const NBX::Bounds & box) const;

    Matrix trapMat; ///< from (x, z) to the cube from -1 to 1
    /// Of the picture in which the terrain stands, and in the terrain's frame.
    NBX::SO<const NBX::ViewInfo> view;
    unsigned viewportWidth = 0, viewportHeight = 0;
    NBX::EngineGL * engine = nullptr; ///< of that picture
    NBX::Bounds terrain;              ///< in the frame of `view`
    double textureError = 1.0;
    bool inMotion = false, asynchronous = false;
    bool isIncomplete = false; ///< set where something coarser stands in

private:
    TrapezoidPass * const before_;
};

} // namespace ZMT::CORE
