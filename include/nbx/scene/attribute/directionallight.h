#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/scene/attribute/light.h>

namespace NBX {

/// A light infinitely far away.
class DirectionalLight : public Light {
    NBX_STORED_CLASS(DirectionalLight, Light)
public:
    /// `direction` is the way the light travels, in the frame of the node; it need not have length 1.
    explicit DirectionalLight(const Vector3Base<double> & direction = {0.0, -1.0, 0.0},
                              const Color & diffuse = Color::white, const Color & ambient = Color::black,
                              const Color & specular = Color::white);

    const Vector3Base<double> & getDirection() const { return direction_; }
    void setDirection(const Vector3Base<double> & direction);

    /// Attribute "direction".
    void serialize(SerializationManager & m) override;

private:
    Vector3Base<double> direction_;
};

} // namespace NBX
