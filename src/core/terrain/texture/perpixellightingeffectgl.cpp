#include <zmt/core/terrain/texture/perpixellightingeffectgl.h>

#include <nbx/object/serializationmanager.h>

#include "lightchecks.h"

namespace ZMT::CORE {

PerPixelLightingEffectGL::PerPixelLightingEffectGL() = default;

PerPixelLightingEffectGL::PerPixelLightingEffectGL(NBX::TextureGL * normalTexture, NBX::TexGenGL * texGen,
                                                   const Point & lightDirection, double lightAmbient)
    : normalTexture_(normalTexture), texGen_(texGen), lightDirection_(lightDirection),
      lightAmbient_(lightAmbient) {
    NBX_CHECK(normalTexture, L"no normal texture");
    checkLightDirection(lightDirection);
    checkLightAmbient(lightAmbient);
}

void PerPixelLightingEffectGL::setNormalTexture(NBX::TextureGL * normalTexture) {
    if (normalTexture_ == normalTexture) return;
    NBX_CHECK(normalTexture, L"no normal texture");
    normalTexture_ = normalTexture;
    modified();
}

void PerPixelLightingEffectGL::setTexGen(NBX::TexGenGL * texGen) {
    if (texGen_ == texGen) return;
    texGen_ = texGen;
    modified();
}

void PerPixelLightingEffectGL::setLightDirection(const Point & lightDirection) {
    if (lightDirection_ == lightDirection) return;
    checkLightDirection(lightDirection);
    lightDirection_ = lightDirection;
    modified();
}

void PerPixelLightingEffectGL::setLightAmbient(double lightAmbient) {
    if (lightAmbient_ == lightAmbient) return;
    checkLightAmbient(lightAmbient);
    lightAmbient_ = lightAmbient;
    modified();
}

void PerPixelLightingEffectGL::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    NBX::TexturingEffectGL::acceptChildren(children);
    children.insert(children.end(), {normalTexture_.get(), texGen_.get()});
}

void PerPixelLightingEffectGL::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::TexturingEffectGL>(m, this);
    m.attribute("normalTexture", normalTexture_);
    m.attribute("texGen", texGen_);
    m.attribute("lightDirection", lightDirection_);
    m.attribute("lightAmbient", lightAmbient_);
}

NBX_STORED_CLASS_IMPL(PerPixelLightingEffectGL, NBX::TexturingEffectGL)

} // namespace ZMT::CORE
