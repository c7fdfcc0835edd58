#pragma once

#include <nbx/engine/monoattributepainter.h>

namespace NBX {

/// Brings a `ShapeMaterial` into effect: its colour of ambient and diffuse light is also the plain colour of
/// unlit surfaces, and gives way to colours of vertices. A `ShapeMaterialGL` should not be in force at once.
class PlainMaterialPainterGL : public MonoAttributePainter {
    NBX_CLASS(PlainMaterialPainterGL, MonoAttributePainter)
public:
    ID target() const override;
    bool apply(Engine * engine, const MonoAttribute * attribute, bool entering) override;
};

} // namespace NBX
