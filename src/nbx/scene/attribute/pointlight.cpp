#include <nbx/scene/attribute/pointlight.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(PointLight, Light)

PointLight::PointLight(const Vector3Base<double> & position, const Color & diffuse, const Color & ambient,
                       const Color & specular)
    : Light(diffuse, ambient, specular), position_(position) {}

void PointLight::setPosition(const Vector3Base<double> & position) {
    if (position_ == position) return;
    position_ = position;
    modified();
}

void PointLight::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Light>(m, this);
    m.attribute("position", position_);
}

} // namespace NBX
