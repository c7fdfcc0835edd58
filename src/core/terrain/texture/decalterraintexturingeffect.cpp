#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>

#include <nbx/gl/effect/decalmultitexturingeffectgl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

NBX::TexturingEffectGL * DecalTerrainTexturingEffect::newEngineEffect(EngineTextures * textures) const {
    return new NBX::DecalMultiTexturingEffectGL(textures, nullptr, false, opacity_);
}

void DecalTerrainTexturingEffect::setOpacity(double opacity) {
    NBX_CHECK(opacity >= 0.0 && opacity <= 1.0, L"opacity out of range");
    if (!(opacity >= 0.0 && opacity <= 1.0) || opacity == opacity_) return;
    opacity_ = opacity;
    modified();
}

/// Behind the textures, and only where it is not 1, so that opaque effects are stored as ever.
void DecalTerrainTexturingEffect::serialize(NBX::SerializationManager & m) {
    TextureSequenceEffect::serialize(m);
    if (m.isReading() || opacity_ != 1.0) NBX::attributeWithDefault(m, "opacity", opacity_, 1.0);
}

NBX_STORED_CLASS_IMPL(DecalTerrainTexturingEffect, TextureSequenceEffect)

} // namespace ZMT::CORE
