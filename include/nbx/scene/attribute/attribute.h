#pragma once

#include <nbx/object/id.h>
#include <nbx/scene/base/renderobj.h>

namespace NBX {

/// Base of what changes the rendering state for the objects behind it in a node, and for those below them.
class Attribute : public RenderObj {
    NBX_CLASS(Attribute, RenderObj)
public:
    explicit Attribute(bool enabled) : RenderObj(enabled) {}

    /// Attributes of one category displace, or for poly attributes join, each other. The class name, unless
    /// a class says otherwise for itself and all its subclasses.
    virtual ID category() const;
    /// True for attributes that may need several passes over the shapes behind them; see
    /// `Engine::paintWithEffects`.
    virtual bool isPassEffect() const;
};

} // namespace NBX
