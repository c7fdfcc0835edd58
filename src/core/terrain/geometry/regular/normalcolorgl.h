#pragma once

#include <GL/gl.h>

#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

/// Issues the direction of a normal, multiplied with `scale`, as a colour: each component, from -1 to 1, as
/// 0 to 1.
inline void normalColorGL(const NBX::Vector3Base<double> & normal, const NBX::Vector3Base<double> & scale) {
    const auto unit =
        NBX::Vector3Base<double>(normal.x * scale.x, normal.y * scale.y, normal.z * scale.z).normalized();
    glColor3d(unit.x * 0.5 + 0.5, unit.y * 0.5 + 0.5, unit.z * 0.5 + 0.5);
}

} // namespace ZMT::CORE
