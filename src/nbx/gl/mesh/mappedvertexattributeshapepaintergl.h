#pragma once

#include <nbx/engine/shapepainter.h>

namespace NBX {

/// Draws a `MappedVertexAttributeShapeGL` with one call of OpenGL. The state of OpenGL stays as it is found.
class MappedVertexAttributeShapePainterGL : public ShapePainter {
    NBX_CLASS(MappedVertexAttributeShapePainterGL, ShapePainter)
public:
    ID target() const override;
    bool render(Engine * engine, const Shape * shape) override;
};

} // namespace NBX
