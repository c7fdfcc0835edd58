#pragma once

#include <nbx/engine/shapepainter.h>

namespace ZMT::CORE {

/// Draws the shadow of a rectangle of a grid on the level of its lowest point: grey, and white along all four
/// sides. The light falls along (1, 0.1, 1). Every vertex is moved by its own height above that level, so
/// that the shadow is flat, and nothing of the light's strength or of other patches plays a part. A shadow is
/// ten times as long as its object is high, so it leaves the rectangle, and may leave the scene's box.
class GridPatchShadowPainterGL : public NBX::ShapePainter {
    NBX_CLASS(GridPatchShadowPainterGL, NBX::ShapePainter)
public:
    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
