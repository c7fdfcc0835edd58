#pragma once

#include <nbx/engine/simplifier.h>

namespace NBX {

class Shape;

/// Turns the shapes of one class into simpler ones, which it hands to the engine.
class ShapeSimplifier : public Simplifier {
    NBX_CLASS(ShapeSimplifier, Simplifier)
public:
    /// True when the shape was handled. Leaves the engine's stacks as they were.
    virtual bool simplify(Engine * engine, const Shape * shape) = 0;
};

} // namespace NBX
