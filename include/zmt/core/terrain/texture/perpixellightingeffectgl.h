#pragma once

#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

/// Lights the picture of the shapes that follow by a texture of their normals: multiplies it with
/// ambient + (1 - ambient) * max(0, normal . direction). The texture shows each component of the normals,
/// from -1 to 1, as 0 to 1, in the frame in which the direction of the light is given.
///
/// A wrong value is reported and kept: under "normalTexture" with "no normal texture", under
/// "!lightDirection.isOrigin()" with "invalid light direction", and under
/// "(0.0 <= lightAmbient) && (lightAmbient <= 1.0)" with "invalid light ambient".
///
/// Stored attributes: "normalTexture", "texGen", "lightDirection", "lightAmbient".
class PerPixelLightingEffectGL : public NBX::TexturingEffectGL {
    NBX_STORED_CLASS(PerPixelLightingEffectGL, NBX::TexturingEffectGL)
public:
    using Point = NBX::Vector3Base<double>;

    /// `texGen` may be null: the engine's current one then holds. `lightDirection` leads to the light, and
    /// need not have length 1. `lightAmbient` is from 0 to 1.
    PerPixelLightingEffectGL(NBX::TextureGL * normalTexture, NBX::TexGenGL * texGen,
                             const Point & lightDirection, double lightAmbient);

    const NBX::SO<NBX::TextureGL> & getNormalTexture() const { return normalTexture_; }
    void setNormalTexture(NBX::TextureGL * normalTexture);
    const NBX::SO<NBX::TexGenGL> & getTexGen() const { return texGen_; }
    void setTexGen(NBX::TexGenGL * texGen);
    const Point & getLightDirection() const { return lightDirection_; }
    void setLightDirection(const Point & lightDirection);
    double getLightAmbient() const { return lightAmbient_; }
    void setLightAmbient(double lightAmbient);

    void acceptChildren(std::vector<NBX::Visitable *> & children) const override;
    void serialize(NBX::SerializationManager & m) override;

protected:
    /// Without a texture, for reading.
    PerPixelLightingEffectGL();

private:
    NBX::SO<NBX::TextureGL> normalTexture_;
    NBX::SO<NBX::TexGenGL> texGen_;
    Point lightDirection_{0.0, 1.0, 0.0};
    double lightAmbient_ = 0.0;
};

} // namespace ZMT::CORE
