#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/scene/attribute/light.h>

namespace NBX {

/// A light at one place, the same in all directions and at all distances.
class PointLight : public Light {
    NBX_STORED_CLASS(PointLight, Light)
public:
    /// `position` is in the frame of the node.
    explicit PointLight(const Vector3Base<double> & position = {}, const Color & diffuse = Color::white,
                        const Color & ambient = Color::black, const Color & specular = Color::white);

    const Vector3Base<double> & getPosition() const { return position_; }
    void setPosition(const Vector3Base<double> & position);

    /// Attribute "position".
    void serialize(SerializationManager & m) override;

private:
    Vector3Base<double> position_;
};

} // namespace NBX
