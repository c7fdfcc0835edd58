#pragma once

#include <nbx/object/id.h>
#include <nbx/scene/base/renderobj.h>

namespace NBX {

/// Base of what the engine calls for the objects of one class. Among the handlers of one class and service
/// the one registered last is asked, unless it is disabled.
class Handler : public RenderObj {
    NBX_CLASS(Handler, RenderObj)
public:
    /// The class name of the family: `Painter`, `Simplifier` or `RayIntersector`.
    virtual ID service() const = 0;
    /// The name of the class that it handles, with all subclasses that have no handler of their own.
    virtual ID target() const = 0;
};

} // namespace NBX
