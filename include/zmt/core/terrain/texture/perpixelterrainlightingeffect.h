#pragma once

#include <zmt/core/terrain/texture/terraintexture.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

namespace ZMT::CORE {

/// Lights a terrain for each pixel by a texture of its normals, such as `Terrain::createDynamicLightMap`
/// makes, with a light that may move: multiplies the picture of the lower effects. It takes the place of
/// lights in the scene.
///
/// A wrong value is reported and kept, as by `PerPixelLightingEffectGL`. With an ambient share of 1 there is
/// nothing to light: the effect adds nothing, and hides the lower ones.
///
/// Stored attributes: "normalTexture", "lightDirection", "lightAmbient".
class PerPixelTerrainLightingEffect : public TerrainTexturingEffect {
    NBX_STORED_CLASS(PerPixelTerrainLightingEffect, TerrainTexturingEffect)
public:
    using Point = NBX::Vector3Base<double>;

    /// `lightDirection` leads to the light, in the frame of the normals, and need not have length 1.
    /// `lightAmbient`, from 0 to 1, is the share of the light that comes from everywhere.
    PerPixelTerrainLightingEffect(TerrainTexture * normalTexture, const Point & lightDirection,
                                  double lightAmbient);

    const NBX::SO<TerrainTexture> & getNormalTexture() const { return normalTexture_; }
    void setNormalTexture(TerrainTexture * normalTexture);
    const Point & getLightDirection() const { return lightDirection_; }
    void setLightDirection(const Point & lightDirection);
    double getLightAmbient() const { return lightAmbient_; }
    void setLightAmbient(double lightAmbient);

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
    PerPixelTerrainLightingEffect();

private:
    NBX::SO<TerrainTexture> normalTexture_;
    Point lightDirection_{0.0, 1.0, 0.0};
    double lightAmbient_ = 0.0;
};

} // namespace ZMT::CORE
