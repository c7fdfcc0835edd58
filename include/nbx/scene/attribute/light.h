#pragma once

#include <nbx/math/color.h>
#include <nbx/scene/attribute/polyattribute.h>

namespace NBX {

/// Base of the lights. All of them share one category.
class Light : public PolyAttribute {
    NBX_CLASS(Light, PolyAttribute)
public:
    explicit Light(const Color & diffuse = Color::white, const Color & ambient = Color::black,
                   const Color & specular = Color::white);

    const Color & getDiffuse() const { return diffuse_; }
    const Color & getAmbient() const { return ambient_; }
    const Color & getSpecular() const { return specular_; }
    void setDiffuse(const Color & color);
    void setAmbient(const Color & color);
    void setSpecular(const Color & color);

    /// The class name of `Light`.
    ID category() const override;
    /// Attributes "diffuse", "ambient", "specular", each with "_alpha".
    void serialize(SerializationManager & m) override;

private:
    void set(Color & field, const Color & color);

    Color diffuse_, ambient_, specular_;
};

} // namespace NBX
