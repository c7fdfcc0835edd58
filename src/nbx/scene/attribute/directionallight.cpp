#include <nbx/scene/attribute/directionallight.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(DirectionalLight, Light)

DirectionalLight::DirectionalLight(const Vector3Base<double> & direction, const Color & diffuse,
                                   const Color & ambient, const Color & specular)
    : Light(diffuse, ambient, specular), direction_(direction) {}

void DirectionalLight::setDirection(const Vector3Base<double> & direction) {
    if (direction_ == direction) return;
    direction_ = direction;
    modified();
}

void DirectionalLight::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Light>(m, this);
    m.attribute("direction", direction_);
}

} // namespace NBX
