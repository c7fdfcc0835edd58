#pragma once

#include <nbx/engine/shapepainter.h>

namespace NBX {

/// Draws the triangles of a `PolygonSet`, from a display list where none is being recorded.
/// The state of OpenGL stays as it is found.
class PolygonSetPainterGL : public ShapePainter {
    NBX_CLASS(PolygonSetPainterGL, ShapePainter)
public:
    ID target() const override;
    bool render(Engine * engine, const Shape * shape) override;
};

} // namespace NBX
