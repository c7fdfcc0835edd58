#pragma once

#include <nbx/engine/shapepainter.h>

namespace ZMT::CORE {

/// Draws the shadow of a rectangle of a grid on the level of its lowest point: grey, and white on the border.
class GridPatchShadowPainterGL : public NBX::ShapePainter {
    NBX_CLASS(GridPatchShadowPainterGL, NBX::ShapePainter)
public:
    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
