#include <nbx/scene/view/groundplatenavigation.h>

#include <cmath>
#include <numbers>

namespace NBX {

GroundPlateNavigation::Polar GroundPlateNavigation::cartesian2Polar(const Vector3Base<double> & offset) {
    constexpr double degrees = 180.0 / std::numbers::pi;
    const double onGround = std::hypot(offset.x, offset.z);
    // The angle of two zeros would be that of their signs.
    const double azimuth = onGround == 0.0 ? 0.0 : std::atan2(offset.x, offset.z);
    return {azimuth * degrees, std::atan2(offset.y, onGround) * degrees, std::hypot(onGround, offset.y)};
}

} // namespace NBX
