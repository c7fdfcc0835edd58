#pragma once

#include <nbx/engine/shapepainter.h>

namespace NBX {

/// Draws the six sides of a `Box`, front faces outwards, with normals.
/// The state of OpenGL stays as it is found.
class BoxPainterGL : public ShapePainter {
    NBX_CLASS(BoxPainterGL, ShapePainter)
public:
    ID target() const override;
    bool render(Engine * engine, const Shape * shape) override;
};

} // namespace NBX
