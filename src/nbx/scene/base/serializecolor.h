#pragma once

#include <string>

#include <nbx/math/color.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

/// Stores a colour as the vector `name` and the number `name` + "_alpha"; a missing part gets the default.
inline void serializeColor(SerializationManager & m, const std::string & name, Color & color,
                           const Color & defaultColor) {
    Vector3Base<double> rgb(color[0], color[1], color[2]);
    auto alpha = static_cast<double>(color[3]);
    attributeWithDefault(m, name.c_str(), rgb,
                         Vector3Base<double>(defaultColor[0], defaultColor[1], defaultColor[2]));
    attributeWithDefault(m, (name + "_alpha").c_str(), alpha, static_cast<double>(defaultColor[3]));
    if (m.isReading()) color = Color(rgb.x, rgb.y, rgb.z, alpha);
}

} // namespace NBX
