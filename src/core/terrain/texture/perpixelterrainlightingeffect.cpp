#include <zmt/core/terrain/texture/perpixelterrainlightingeffect.h>

#include <nbx/object/serializationmanager.h>
#include <zmt/core/terrain/texture/perpixellightingeffectgl.h>

#include "lightchecks.h"

namespace ZMT::CORE {

PerPixelTerrainLightingEffect::PerPixelTerrainLightingEffect() = default;

PerPixelTerrainLightingEffect::PerPixelTerrainLightingEffect(TerrainTexture * normalTexture,
                                                             const Point & lightDirection,
                                                             double lightAmbient)
    : normalTexture_(normalTexture), lightDirection_(lightDirection), lightAmbient_(lightAmbient) {
    NBX_CHECK(normalTexture, L"no normal texture");
    checkLightDirection(lightDirection);
    checkLightAmbient(lightAmbient);
}

void PerPixelTerrainLightingEffect::setNormalTexture(TerrainTexture * normalTexture) {
    if (normalTexture_ == normalTexture) return;
    NBX_CHECK(normalTexture, L"no normal texture");
    normalTexture_ = normalTexture;
    modified();
}

void PerPixelTerrainLightingEffect::setLightDirection(const Point & lightDirection) {
    if (lightDirection_ == lightDirection) return;
    checkLightDirection(lightDirection);
    lightDirection_ = lightDirection;
    modified();
}

void PerPixelTerrainLightingEffect::setLightAmbient(double lightAmbient) {
    if (lightAmbient_ == lightAmbient) return;
    checkLightAmbient(lightAmbient);
    lightAmbient_ = lightAmbient;
    modified();
}

bool PerPixelTerrainLightingEffect::refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo,
                                           unsigned viewportWidth, unsigned viewportHeight,
                                           const NBX::Vector3Base<double> & eye, double textureError,
                                           bool inMotion) const {
    if (lightAmbient_ >= 1.0 || !normalTexture_) return false;
    return normalTexture_->refine(patch, viewInfo, viewportWidth, viewportHeight, eye, textureError,
                                  inMotion);
}

bool PerPixelTerrainLightingEffect::ignorePreviousEffects(const GeometryPatch *, const NBX::ViewInfo *,
                                                          unsigned, unsigned,
                                                          const NBX::Vector3Base<double> &, double,
                                                          bool) const {
    return lightAmbient_ >= 1.0;
}

NBX::SO<NBX::TexturingEffectGL> PerPixelTerrainLightingEffect::request(
    const GeometryPatch * patch, NBX::EngineGL * engine, const NBX::ViewInfo * viewInfo,
    unsigned viewportWidth, unsigned viewportHeight, double priority, const NBX::Vector3Base<double> & eye,
    double textureError, bool inMotion, bool asynchronous, bool & incomplete) const {
    if (lightAmbient_ >= 1.0 || !normalTexture_) return nullptr;
    const auto texture =
        normalTexture_->request(patch, engine, viewInfo, viewportWidth, viewportHeight, priority, eye,
                                textureError, inMotion, asynchronous, incomplete);
    if (!texture) return nullptr;
    return new PerPixelLightingEffectGL(texture.get(), nullptr, lightDirection_, lightAmbient_);
}

void PerPixelTerrainLightingEffect::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    TerrainTexturingEffect::acceptChildren(children);
    children.push_back(normalTexture_.get());
}

void PerPixelTerrainLightingEffect::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexturingEffect>(m, this);
    m.attribute("normalTexture", normalTexture_);
    m.attribute("lightDirection", lightDirection_);
    m.attribute("lightAmbient", lightAmbient_);
}

NBX_STORED_CLASS_IMPL(PerPixelTerrainLightingEffect, TerrainTexturingEffect)

} // namespace ZMT::CORE
