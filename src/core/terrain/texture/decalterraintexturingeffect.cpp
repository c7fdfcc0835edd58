#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>

#include <nbx/gl/effect/decalmultitexturingeffectgl.h>
#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

NBX::TexturingEffectGL * DecalTerrainTexturingEffect::newEngineEffect(EngineTextures * textures) const {
    return new NBX::DecalMultiTexturingEffectGL(textures, nullptr, false);
}

NBX_STORED_CLASS_IMPL(DecalTerrainTexturingEffect, TextureSequenceEffect)

} // namespace ZMT::CORE
