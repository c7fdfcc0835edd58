#pragma once

#include <nbx/engine/shapepainter.h>

namespace ZMT::CORE {

/// The render loop of a terrain. In one pass over the tree of patches it decides which are drawn, by culling
/// and by the error on the screen, asks the texturing effects what to show on each, and draws.
///
/// The texture level and the geometry level are chosen apart: a patch is split while an effect wants it for
/// its textures; what is then drawn under one set of textures is refined further as its error is visible.
class TerrainPainterGL : public NBX::ShapePainter {
    NBX_CLASS(TerrainPainterGL, NBX::ShapePainter)
public:
    TerrainPainterGL() = default;

    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
