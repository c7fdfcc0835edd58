#pragma once

#include <nbx/math/bounds.h>
#include <nbx/scene/base/renderobj.h>

namespace NBX {

/// Base of what is drawn. A shape draws nothing itself: the engine finds the handler of its class.
class Shape : public RenderObj {
    NBX_CLASS(Shape, RenderObj)
public:
    explicit Shape(bool enabled) : RenderObj(enabled) {}

    /// In the frame in which the shape is placed; undefined where there is nothing to draw.
    virtual Bounds boundingBox() const;
};

} // namespace NBX
