#pragma once

#include <nbx/engine/painter.h>

namespace NBX {

class MonoAttribute;

/// Brings the mono attributes of one class into effect.
class MonoAttributePainter : public Painter {
    NBX_CLASS(MonoAttributePainter, Painter)
public:
    /// `entering`: puts the attribute's state in force. Otherwise restores the default state; the engine then
    /// calls again for the attribute that becomes the current one. False when there is nothing that this
    /// painter can do with the attribute, and the simplifier of its class is to be asked.
    virtual bool apply(Engine * engine, const MonoAttribute * attribute, bool entering) = 0;
};

} // namespace NBX
