#pragma once

#include <nbx/engine/shapepainter.h>

namespace ZMT::CORE {

/// Lets a `DynamicHeightTextureRendering` draw itself.
class DynamicHeightTextureRenderingPainterGL : public NBX::ShapePainter {
    NBX_CLASS(DynamicHeightTextureRenderingPainterGL, NBX::ShapePainter)
public:
    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
