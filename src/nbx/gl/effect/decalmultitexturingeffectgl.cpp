#include <nbx/gl/effect/decalmultitexturingeffectgl.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/effect/texturingeffectshadergl.h>

#include "mappedtexturesgl.h"

namespace NBX {

NBX_CLASS_IMPL(DecalMultiTexturingEffectGL, TexturingEffectGL)

DecalMultiTexturingEffectGL::DecalMultiTexturingEffectGL(Iterator<SO<TextureGL>> * textures,
                                                         Iterator<SO<TexGenGL>> * texGens, bool disabled,
                                                         double opacity)
    : TexturingEffectGL(!disabled), textures_(textures), texGens_(texGens), opacity_(opacity) {}

namespace {

class DecalShaderGL : public TexturingEffectShaderGL {
public:
    ID target() const override { return DecalMultiTexturingEffectGL::ClassNameNBX(); }

    void updatePasses(EngineGL *, TexturingEffectGL * effect, PassesSetup & passes) override {
        const auto & own = static_cast<const DecalMultiTexturingEffectGL &>(*effect);
        for (const auto & t : mappedTextures(own.getTextures().get(), own.getTexGens().get()))
            passes.decal(t.texture, own.getOpacity());
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(DecalShaderGL)

} // namespace NBX
