#include <nbx/scene/attribute/shapematerial.h>

#include <nbx/object/serializationmanager.h>

#include "nbx/scene/base/serializecolor.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(ShapeMaterial, MonoAttribute)

ShapeMaterial::ShapeMaterial(const Color & ambientAndDiffuse, const Color & specular, double shininess,
                             const Color & emission)
    : MonoAttribute(true), ambientAndDiffuse_(ambientAndDiffuse), specular_(specular), emission_(emission),
      shininess_(shininess) {}

void ShapeMaterial::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    serializeColor(m, "ambientAndDiffuse", ambientAndDiffuse_, Color(0.8F));
    serializeColor(m, "specular", specular_, Color::black);
    serializeColor(m, "emission", emission_, Color::black);
    attributeWithDefault(m, "shininess", shininess_, 0.0);
}

} // namespace NBX
