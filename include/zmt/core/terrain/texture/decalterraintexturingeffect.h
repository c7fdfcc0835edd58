#pragma once

#include <zmt/core/terrain/texture/texturesequenceeffect.h>

namespace ZMT::CORE {

/// Lays its textures one over the other on the picture of the lower effects, as far as they are opaque.
class DecalTerrainTexturingEffect : public TextureSequenceEffect {
    NBX_STORED_CLASS(DecalTerrainTexturingEffect, TextureSequenceEffect)
public:
    /// Keeps `textures`, which may be null.
    explicit DecalTerrainTexturingEffect(Textures * textures = nullptr) : TextureSequenceEffect(textures) {}

protected:
    NBX::TexturingEffectGL * newEngineEffect(EngineTextures * textures) const override;
};

} // namespace ZMT::CORE
