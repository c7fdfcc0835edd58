#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/scene/attribute/light.h>

namespace NBX {

/// The sun: a light infinitely far away that brings along its own share of light from everywhere. Unlike
/// `DirectionalLight` it is given by the way towards it.
class DistantLight : public Light {
    NBX_STORED_CLASS(DistantLight, Light)
public:
    /// `direction` leads to the light, in the frame of the node; it need not have length 1. A surface that
    /// faces the light receives `color` times `intensity`; one that looks away from it receives the share
    /// `ambient`, from 0 to 1, of that. Other values are cut, after a report.
    explicit DistantLight(const Vector3Base<double> & direction = {0.0, 1.0, 0.0},
                          const Color & color = Color::white, double intensity = 1.0, double ambient = 0.0);

    const Vector3Base<double> & getDirection() const { return direction_; }
    void setDirection(const Vector3Base<double> & direction);

    /// Attribute "direction".
    void serialize(SerializationManager & m) override;

private:
    Vector3Base<double> direction_;
};

} // namespace NBX
