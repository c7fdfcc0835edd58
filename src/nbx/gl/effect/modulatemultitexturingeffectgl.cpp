#include <nbx/gl/effect/modulatemultitexturingeffectgl.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/effect/texturingeffectshadergl.h>

#include "mappedtexturesgl.h"

namespace NBX {

NBX_CLASS_IMPL(ModulateMultiTexturingEffectGL, TexturingEffectGL)

ModulateMultiTexturingEffectGL::ModulateMultiTexturingEffectGL(Iterator<SO<TextureGL>> * textures,
                                                               Iterator<SO<TexGenGL>> * texGens,
                                                               bool disabled)
    : TexturingEffectGL(!disabled), textures_(textures), texGens_(texGens) {}

namespace {

class ModulateShaderGL : public TexturingEffectShaderGL {
public:
    ID target() const override { return ModulateMultiTexturingEffectGL::ClassNameNBX(); }

    void updatePasses(EngineGL *, TexturingEffectGL * effect, PassesSetup & passes) override {
        const auto & own = static_cast<const ModulateMultiTexturingEffectGL &>(*effect);
        for (const auto & t : mappedTextures(own.getTextures().get(), own.getTexGens().get()))
            passes.modulate(t.texture);
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(ModulateShaderGL)

} // namespace NBX
