#pragma once

#include <nbx/math/color.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// How a surface answers to light, whatever draws it.
class ShapeMaterial : public MonoAttribute {
    NBX_STORED_CLASS(ShapeMaterial, MonoAttribute)
public:
    /// `shininess` is the exponent of the highlight, from 0 to 128.
    explicit ShapeMaterial(const Color & ambientAndDiffuse = Color(0.8F),
                           const Color & specular = Color::black, double shininess = 0.0,
                           const Color & emission = Color::black);

    const Color & getAmbientAndDiffuse() const { return ambientAndDiffuse_; }
    const Color & getSpecular() const { return specular_; }
    const Color & getEmission() const { return emission_; }
    double getShininess() const { return shininess_; }

    /// Attributes "ambientAndDiffuse", "specular", "emission", each with "_alpha", and "shininess".
    void serialize(SerializationManager & m) override;

private:
    Color ambientAndDiffuse_, specular_, emission_;
    double shininess_;
};

} // namespace NBX
