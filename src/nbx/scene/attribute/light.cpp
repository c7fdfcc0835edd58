#include <nbx/scene/attribute/light.h>

#include <nbx/object/serializationmanager.h>

#include "nbx/scene/base/serializecolor.h"

namespace NBX {

NBX_CLASS_IMPL(Light, PolyAttribute)

Light::Light(const Color & diffuse, const Color & ambient, const Color & specular)
    : PolyAttribute(true), diffuse_(diffuse), ambient_(ambient), specular_(specular) {}

void Light::setDiffuse(const Color & color) {
    set(diffuse_, color);
}

void Light::setAmbient(const Color & color) {
    set(ambient_, color);
}

void Light::setSpecular(const Color & color) {
    set(specular_, color);
}

void Light::set(Color & field, const Color & color) {
    if (field == color) return;
    field = color;
    modified();
}

ID Light::category() const {
    return ClassNameNBX();
}

void Light::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<PolyAttribute>(m, this);
    serializeColor(m, "diffuse", diffuse_, Color::white);
    serializeColor(m, "ambient", ambient_, Color::black);
    serializeColor(m, "specular", specular_, Color::white);
}

} // namespace NBX
