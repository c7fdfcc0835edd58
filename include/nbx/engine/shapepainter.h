#pragma once

#include <nbx/engine/painter.h>

namespace NBX {

class Shape;

/// Draws the shapes of one class.
class ShapePainter : public Painter {
    NBX_CLASS(ShapePainter, Painter)
public:
    /// True when the shape was drawn; otherwise the engine goes on to the simplifier of its class. Leaves the
    /// engine's stacks as they were.
    virtual bool render(Engine * engine, const Shape * shape) = 0;

    /// What the engine calls.
    bool paint(Engine * engine, const Shape * shape) { return render(engine, shape); }
};

} // namespace NBX
