#pragma once

#include <cmath>

#include <nbx/math/vector3base.h>

namespace NBX {

/// False when a component is infinite or no number.
template <class T> bool isFinite(const Vector3Base<T> & v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

} // namespace NBX
