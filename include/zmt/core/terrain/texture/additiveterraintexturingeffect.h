#pragma once

#include <nbx/container/sequence/iterator.h>
#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

namespace ZMT::CORE {

/// Adds its textures, weighted, to what is kept of the picture of the lower effects.
///
/// Entry i of the weights belongs to texture i. A texture with a weight of 0 or less takes no part, and its
/// data are not even requested; one beyond the end of the weights takes part without a weight of its own.
class AdditiveTerrainTexturingEffect : public TerrainTexturingEffect {
    NBX_STORED_CLASS(AdditiveTerrainTexturingEffect, TerrainTexturingEffect)
public:
    using Textures = NBX::Iterator<NBX::SO<TerrainTexture>>;
    using Weights = NBX::Iterator<double>;

    /// Keeps both sequences, which may be null. `previousEffectWeight` is the factor of the lower picture.
    explicit AdditiveTerrainTexturingEffect(Textures * textures = nullptr, Weights * weights = nullptr,
                                            double previousEffectWeight = 0.0);

    const NBX::SO<Textures> & getTextures() const { return textures_; }
    void setTextures(Textures * textures);
    const NBX::SO<Weights> & getWeights() const { return weights_; }
    void setWeights(Weights * weights);
    double getPreviousEffectWeight() const { return previousEffectWeight_; }
    void setPreviousEffectWeight(double weight);

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
    bool hasWeight(unsigned i) const { return weights_ && i < weights_->size(); }
    bool takesPart(unsigned i) const;

    NBX::SO<Textures> textures_;
    NBX::SO<Weights> weights_;
    double previousEffectWeight_;
};

} // namespace ZMT::CORE
