#pragma once

#include <nbx/gl/effect/texturingeffectshadergl.h>

namespace ZMT::CORE {

/// Turns a `PerPixelLightingEffectGL` into two texture stages of the fixed functions: a dot product with the
/// normals, and the share of ambient light. Needs OpenGL 1.3 and two texture units.
class PerPixelLightingEffectShaderGL : public NBX::TexturingEffectShaderGL {
    NBX_CLASS(PerPixelLightingEffectShaderGL, NBX::TexturingEffectShaderGL)
public:
    NBX::ID target() const override;
    bool canBeUsed(NBX::Engine * engine, const NBX::MonoAttribute * effect) const override;
    /// An effect that cannot be used is reported under "canBeUsed(engine, effect)" with "internal error", one
    /// without texture under "normalTexture" with "no normal texture"; either adds nothing.
    void updatePasses(NBX::EngineGL * engine, NBX::TexturingEffectGL * effect,
                      NBX::PassesSetup & passes) override;
};

} // namespace ZMT::CORE
