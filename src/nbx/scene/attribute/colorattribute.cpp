#include <nbx/scene/attribute/colorattribute.h>

#include "nbx/scene/base/serializecolor.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(ColorAttribute, MonoAttribute)

void ColorAttribute::setColor(const Color & color) {
    if (color == color_) return;
    color_ = color;
    modified();
}

void ColorAttribute::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    serializeColor(m, "color", color_, Color::white);
}

} // namespace NBX
