#pragma once

#include <nbx/engine/shapepainter.h>

namespace NBX {

/// Draws a `VertexAttributeShapeGL` with one call of OpenGL. Between painters no vertex array is enabled; the
/// state of OpenGL stays as it is found.
class VertexAttributeShapePainterGL : public ShapePainter {
    NBX_CLASS(VertexAttributeShapePainterGL, ShapePainter)
public:
    ID target() const override;
    bool render(Engine * engine, const Shape * shape) override;
};

} // namespace NBX
