#pragma once

#include <zmt/core/terrain/texture/texturesequenceeffect.h>

namespace ZMT::CORE {

/// Multiplies the picture of the lower effects with each of its textures.
class ModulateTerrainTexturingEffect : public TextureSequenceEffect {
    NBX_STORED_CLASS(ModulateTerrainTexturingEffect, TextureSequenceEffect)
public:
    /// Keeps `textures`, which may be null.
    explicit ModulateTerrainTexturingEffect(Textures * textures = nullptr)
        : TextureSequenceEffect(textures) {}

protected:
    NBX::TexturingEffectGL * newEngineEffect(EngineTextures * textures) const override;
};

} // namespace ZMT::CORE
