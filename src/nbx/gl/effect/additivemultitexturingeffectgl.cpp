#include <nbx/gl/effect/additivemultitexturingeffectgl.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/effect/texturingeffectshadergl.h>

#include "mappedtexturesgl.h"

namespace NBX {

NBX_CLASS_IMPL(AdditiveMultiTexturingEffectGL, TexturingEffectGL)

AdditiveMultiTexturingEffectGL::AdditiveMultiTexturingEffectGL(Iterator<SO<TextureGL>> * textures,
                                                               Iterator<double> * weights,
                                                               Iterator<SO<TexGenGL>> * texGens,
                                                               double previousEffectWeight, bool disabled)
    : TexturingEffectGL(!disabled), textures_(textures), weights_(weights), texGens_(texGens),
      previousEffectWeight_(previousEffectWeight) {}

namespace {

class AdditiveShaderGL : public TexturingEffectShaderGL {
public:
    ID target() const override { return AdditiveMultiTexturingEffectGL::ClassNameNBX(); }

    void updatePasses(EngineGL *, TexturingEffectGL * effect, PassesSetup & passes) override {
        const auto & additive = static_cast<const AdditiveMultiTexturingEffectGL &>(*effect);
        const Iterator<double> * weights = additive.getWeights().get();
        std::vector<PassesSetup::Term> terms;
        for (const auto & t : mappedTextures(additive.getTextures().get(), additive.getTexGens().get()))
            terms.push_back(
                {t.texture, weights && t.number < weights->size() ? weights->get(t.number) : 1.0});
        passes.add(terms, additive.getPreviousEffectWeight());
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(AdditiveShaderGL)

} // namespace NBX
