#pragma once

#include <nbx/engine/simplifier.h>

namespace NBX {

class Attribute;

/// Turns the attributes of one class into simpler state of the engine, such as its model matrix.
class AttributeSimplifier : public Simplifier {
    NBX_CLASS(AttributeSimplifier, Simplifier)
public:
    /// Called once with `entering` true when the attribute is pushed, and, if that gave true, once with false
    /// when it is popped: it undoes then what it did.
    virtual bool simplify(Engine * engine, const Attribute * attribute, bool entering) = 0;
};

} // namespace NBX
