#include <nbx/scene/attribute/clipplane.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(ClipPlane, PolyAttribute)

ClipPlane::ClipPlane() : PolyAttribute(true) {}

ClipPlane::ClipPlane(const Vector3Base<double> & normal, double distance)
    : PolyAttribute(true), normal_(normal), distance_(distance) {}

void ClipPlane::setPlane(const Vector3Base<double> & normal, double distance) {
    if (normal_ == normal && distance_ == distance) return;
    normal_ = normal;
    distance_ = distance;
    modified();
}

ID ClipPlane::category() const {
    return ClassNameNBX();
}

void ClipPlane::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<PolyAttribute>(m, this);
    attributeWithDefault(m, "normal", normal_, Vector3Base<double>());
    attributeWithDefault(m, "distance", distance_, 0.0);
}

} // namespace NBX
