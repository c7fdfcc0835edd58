#include <zmt/core/terrain/texture/dynamic/dynamicheighttexturerenderingpaintergl.h>

#include <nbx/gl/context/enginegl.h>
#include <zmt/core/terrain/texture/dynamic/dynamicheighttexturerendering.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(DynamicHeightTextureRenderingPainterGL, NBX::ShapePainter)

NBX::ID DynamicHeightTextureRenderingPainterGL::target() const {
    return DynamicHeightTextureRendering::ClassNameNBX();
}

bool DynamicHeightTextureRenderingPainterGL::render(NBX::Engine * engine, const NBX::Shape * shape) {
    const NBX::SO<NBX::EngineGL> gl(dynamic_cast<NBX::EngineGL *>(engine));
    const auto * rendering = dynamic_cast<const DynamicHeightTextureRendering *>(shape);
    return gl && rendering && rendering->render(gl);
}

NBX_REGISTER_HANDLER_GL(DynamicHeightTextureRenderingPainterGL)

} // namespace ZMT::CORE
