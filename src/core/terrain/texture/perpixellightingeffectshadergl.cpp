#include <zmt/core/terrain/texture/perpixellightingeffectshadergl.h>

#include <algorithm>

#include <GL/gl.h>
#include <GL/glext.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/effect/passessetup.h>
#include <nbx/gl/texture/texenvcombinegl.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/texture/perpixellightingeffectgl.h>

namespace ZMT::CORE {

namespace {

constexpr unsigned s_stages = 2;

/// As normal maps show normals.
NBX::Color encoded(const NBX::Vector3Base<double> & direction) {
    return {0.5 * (direction.x + 1.0), 0.5 * (direction.y + 1.0), 0.5 * (direction.z + 1.0)};
}

/// 4 * sum of (texture - 0.5) * (constant - 0.5), cut to 0 to 1: the dot product of what both encode.
NBX::SO<NBX::TexEnvCombineGL> newDotProduct(const NBX::Vector3Base<double> & direction) {
    NBX::SO<NBX::TexEnvCombineGL> stage(new NBX::TexEnvCombineGL);
    stage->setEnvironmentColor(encoded(direction));
    stage->setColor(GL_DOT3_RGB, {GL_TEXTURE, GL_SRC_COLOR}, {GL_CONSTANT, GL_SRC_COLOR});
    return stage;
}

/// ambient * 1 + (1 - ambient) * what the stage before made.
NBX::SO<NBX::TexEnvCombineGL> newAmbientShare(double ambient) {
    NBX::SO<NBX::TexEnvCombineGL> stage(new NBX::TexEnvCombineGL);
    stage->setEnvironmentColor(NBX::Color(1.0, 1.0, 1.0, ambient));
    stage->setColor(GL_INTERPOLATE, {GL_CONSTANT, GL_SRC_COLOR}, {GL_PREVIOUS, GL_SRC_COLOR},
                    {GL_CONSTANT, GL_SRC_ALPHA});
    return stage;
}

/// Stored effects may hold any value.
double shareOf(double ambient) {
    return ambient > 0.0 ? std::min(ambient, 1.0) : 0.0;
}

} // namespace

NBX_CLASS_IMPL(PerPixelLightingEffectShaderGL, NBX::TexturingEffectShaderGL)

NBX::ID PerPixelLightingEffectShaderGL::target() const {
    return PerPixelLightingEffectGL::ClassNameNBX();
}

bool PerPixelLightingEffectShaderGL::canBeUsed(NBX::Engine * engine,
                                               const NBX::MonoAttribute * effect) const {
    const auto * gl = dynamic_cast<const NBX::EngineGL *>(engine);
    return gl && dynamic_cast<const PerPixelLightingEffectGL *>(effect) && gl->isVersion(1, 3) &&
           gl->maxTextureUnits() >= s_stages;
}

void PerPixelLightingEffectShaderGL::updatePasses(NBX::EngineGL * engine, NBX::TexturingEffectGL * effect,
                                                  NBX::PassesSetup & passes) {
    const bool usable = canBeUsed(engine, effect);
    if (!usable) NBX_REPORT(0, L"canBeUsed(engine, effect)", L"internal error");
    if (!usable) return;
    const auto & own = static_cast<const PerPixelLightingEffectGL &>(*effect);
    const NBX::SO<NBX::TextureGL> normalTexture = own.getNormalTexture();
    NBX_CHECK(normalTexture, L"no normal texture");
    if (!normalTexture) return;

    if (passes.surfaceContainsColorInCurrentPass() || passes.freeUnitsInCurrentPass() < s_stages)
        passes.createNextPass();
    // The second stage needs no texture, but a unit without one does nothing.
    const NBX::MappedTextureGL normals{normalTexture, own.getTexGen()};
    passes.appendStage(normals, newDotProduct(own.getLightDirection().normalized()).get());
    passes.appendStage(normals, newAmbientShare(shareOf(own.getLightAmbient())).get());
}

NBX_REGISTER_HANDLER_GL(PerPixelLightingEffectShaderGL)

} // namespace ZMT::CORE
