#include <zmt/core/terrain/texture/modulateterraintexturingeffect.h>

#include <nbx/gl/effect/modulatemultitexturingeffectgl.h>
#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

NBX::TexturingEffectGL * ModulateTerrainTexturingEffect::newEngineEffect(EngineTextures * textures) const {
    return new NBX::ModulateMultiTexturingEffectGL(textures, nullptr, false);
}

NBX_STORED_CLASS_IMPL(ModulateTerrainTexturingEffect, TextureSequenceEffect)

} // namespace ZMT::CORE
