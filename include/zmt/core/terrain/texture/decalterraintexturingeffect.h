#pragma once

#include <nbx/container/iterator.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

namespace ZMT::CORE {

/// Lays its textures one over the other on the picture of the lower effects, as far as they are opaque.
class DecalTerrainTexturingEffect : public TerrainTexturingEffect {
    NBX_STORED_CLASS(DecalTerrainTexturingEffect, TerrainTexturingEffect)
public:
    using Textures = NBX::Iterator<NBX::SO<TerrainTexture>>;

    /// Keeps `textures`, which may be null.
    explicit DecalTerrainTexturingEffect(Textures * textures = nullptr);

    const NBX::SO<Textures> & getTextures() const { return textures_; }
    void setTextures(Textures * textures);

    bool refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                unsigned viewportHeight, const NBX::Vector3Base<double> & eye, double textureError,
                bool inMotion) const override;
    bool ignorePreviousEffects(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo,
                               unsigned viewportWidth, unsigned viewportHeight,
                               const NBX::Vector3Base<double> & eye, double textureError,
                               bool inMotion) const override;
    NBX::SO<NBX::TexturingEffectGL> request(const GeometryPatch * patch, NBX::EngineGL * engine,
                                            const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                            unsigned viewportHeight, double priority,
                                            const NBX::Vector3Base<double> & eye, double textureError,
                                            bool inMotion, bool asynchronous,
                                            bool & incomplete) const override;
    void acceptChildren(std::vector<NBX::Visitable *> & children) const override;
    void serialize(NBX::SerializationManager & m) override;

private:
    NBX::SO<Textures> textures_;
};

} // namespace ZMT::CORE
