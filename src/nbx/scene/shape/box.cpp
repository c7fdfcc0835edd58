#include <nbx/scene/shape/box.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(Box, Shape)

Box::Box() : Box(Vector3Base<double>(-0.5, -0.5, -0.5), Vector3Base<double>(0.5, 0.5, 0.5)) {}

Box::Box(const Bounds & bounds) : Shape(true), bounds_(bounds) {}

Box::Box(const Vector3Base<double> & a, const Vector3Base<double> & b) : Box(Bounds(a, b)) {}

void Box::setBounds(const Bounds & bounds) {
    if (bounds_ == bounds) return;
    bounds_ = bounds;
    modified();
}

void Box::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Shape>(m, this);
    m.attribute("bounds", bounds_);
}

} // namespace NBX
