#pragma once

#include <nbx/container/sequence/iterator.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

namespace ZMT::CORE {

/// Base of the effects that apply a sequence of textures, one by one, to the picture of the lower effects.
class TextureSequenceEffect : public TerrainTexturingEffect {
    NBX_CLASS(TextureSequenceEffect, TerrainTexturingEffect)
public:
    using Textures = NBX::Iterator<NBX::SO<TerrainTexture>>;

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

protected:
    /// Keeps `textures`, which may be null.
    explicit TextureSequenceEffect(Textures * textures);

    using EngineTextures = NBX::Iterator<NBX::SO<NBX::TextureGL>>;
    /// The texturing object of the engine over at least one texture.
    virtual NBX::TexturingEffectGL * newEngineEffect(EngineTextures * textures) const = 0;

private:
    NBX::SO<Textures> textures_;
};

} // namespace ZMT::CORE
