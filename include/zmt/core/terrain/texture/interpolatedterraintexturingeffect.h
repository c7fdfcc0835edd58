#pragma once

#include <array>

#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

namespace ZMT::CORE {

/// Blends from texture #1 to texture #2 by the factor that the interpolator's texture carries per pixel.
/// Without a texture #1, the picture of the lower effects takes its place.
class InterpolatedTerrainTexturingEffect : public TerrainTexturingEffect {
    NBX_STORED_CLASS(InterpolatedTerrainTexturingEffect, TerrainTexturingEffect)
public:
    /// `texture1` may be null; other null ones are reported, and left out. `outsideWeight`, from 0 to 1, is
    /// the factor for patches outside the interpolator's box.
    InterpolatedTerrainTexturingEffect(TerrainTexture * interpolator, TerrainTexture * texture1,
                                       TerrainTexture * texture2, double outsideWeight);

    const NBX::SO<TerrainTexture> & getInterpolator() const { return interpolator_; }
    void setInterpolator(TerrainTexture * interpolator);
    /// `i` is 0 or 1, for texture #1 or #2.
    NBX::SO<TerrainTexture> getTexture(unsigned i) const;
    void setTexture(unsigned i, TerrainTexture * texture);
    double getOutsideWeight() const { return outsideWeight_; }
    void setOutsideWeight(double weight);

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
    /// For reading.
    InterpolatedTerrainTexturingEffect();

private:
    bool isOutside(const GeometryPatch * patch) const;

    NBX::SO<TerrainTexture> interpolator_;
    std::array<NBX::SO<TerrainTexture>, 2> textures_;
    double outsideWeight_ = 1.0;
};

} // namespace ZMT::CORE
