#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

/// What effects that light per pixel ask of their light; see `PerPixelLightingEffectGL`.
inline void checkLightDirection(const NBX::Vector3Base<double> & lightDirection) {
    if (lightDirection == NBX::Vector3Base<double>())
        NBX_REPORT(0, L"!lightDirection.isOrigin()", L"invalid light direction");
}

inline void checkLightAmbient(double lightAmbient) {
    NBX_CHECK((0.0 <= lightAmbient) && (lightAmbient <= 1.0), L"invalid light ambient");
}

} // namespace ZMT::CORE
