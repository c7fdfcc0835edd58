#pragma once

#include <nbx/math/color.h>

namespace ZMT::CORE {

/// `color`, with its opacity times `opacity`.
inline NBX::Color withOpacity(NBX::Color color, double opacity) {
    color[3] *= static_cast<float>(opacity);
    return color;
}

} // namespace ZMT::CORE
