#pragma once

#include <zmt/core/terrain/texture/texturesequenceeffect.h>

namespace ZMT::CORE {

/// Lays its textures one over the other on the picture of the lower effects, as far as they and the effect
/// are opaque.
class DecalTerrainTexturingEffect : public TextureSequenceEffect {
    NBX_STORED_CLASS(DecalTerrainTexturingEffect, TextureSequenceEffect)
public:
    /// Keeps `textures`, which may be null.
    explicit DecalTerrainTexturingEffect(Textures * textures = nullptr) : TextureSequenceEffect(textures) {}

    double getOpacity() const { return opacity_; }
    /// From 0 to 1, at first 1; another one is reported, and ignored.
    void setOpacity(double opacity);

    void serialize(NBX::SerializationManager & m) override;

protected:
    NBX::TexturingEffectGL * newEngineEffect(EngineTextures * textures) const override;

private:
    double opacity_ = 1.0;
};

} // namespace ZMT::CORE
