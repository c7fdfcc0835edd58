#pragma once

#include <nbx/engine/shapepainter.h>

namespace NBX {

/// Draws a `LineSet` under the attributes in force.
/// The state of OpenGL stays as it is found.
class LineSetPainterGL : public ShapePainter {
    NBX_CLASS(LineSetPainterGL, ShapePainter)
public:
    ID target() const override;
    bool render(Engine * engine, const Shape * shape) override;
};

} // namespace NBX
