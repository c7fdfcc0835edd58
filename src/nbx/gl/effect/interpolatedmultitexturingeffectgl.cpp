#include <nbx/gl/effect/interpolatedmultitexturingeffectgl.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/effect/passessetup.h>
#include <nbx/gl/effect/texturingeffectshadergl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(InterpolatedMultiTexturingEffectGL, TexturingEffectGL)

InterpolatedMultiTexturingEffectGL::InterpolatedMultiTexturingEffectGL(TextureGL * interpolator,
                                                                       TextureGL * first, TextureGL * second,
                                                                       TexGenGL * interpolatorTexGen,
                                                                       TexGenGL * firstTexGen,
                                                                       TexGenGL * secondTexGen, bool disabled)
    : TexturingEffectGL(!disabled), interpolator_(interpolator), first_(first), second_(second),
      interpolatorTexGen_(interpolatorTexGen), firstTexGen_(firstTexGen), secondTexGen_(secondTexGen) {
    NBX_CHECK(interpolator, L"no interpolator");
    NBX_CHECK(second, L"no second texture");
}

namespace {

class InterpolatedShaderGL : public TexturingEffectShaderGL {
public:
    ID target() const override { return InterpolatedMultiTexturingEffectGL::ClassNameNBX(); }

    void updatePasses(EngineGL *, TexturingEffectGL * effect, PassesSetup & passes) override {
        const auto & own = static_cast<const InterpolatedMultiTexturingEffectGL &>(*effect);
        if (!own.getInterpolator() || !own.getSecond()) return;
        if (own.getFirst()) passes.add({{{own.getFirst(), own.getFirstTexGen()}, 1.0}}, 0.0);
        passes.interpolate({own.getInterpolator(), own.getInterpolatorTexGen()},
                           {own.getSecond(), own.getSecondTexGen()});
    }
};

} // namespace

NBX_REGISTER_HANDLER_GL(InterpolatedShaderGL)

} // namespace NBX
