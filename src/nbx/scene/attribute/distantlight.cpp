#include <nbx/scene/attribute/distantlight.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(DistantLight, Light)

namespace {

Color scaled(const Color & color, double factor) {
    const auto f = static_cast<float>(std::max(0.0, factor));
    return {color[0] * f, color[1] * f, color[2] * f, color[3]};
}

double shareOf(double ambient) {
    return std::clamp(ambient, 0.0, 1.0);
}

} // namespace

DistantLight::DistantLight(const Vector3Base<double> & direction, const Color & color, double intensity,
                           double ambient)
    : Light(scaled(color, intensity * (1.0 - shareOf(ambient))), scaled(color, intensity * shareOf(ambient)),
            scaled(color, intensity)),
      direction_(direction) {
    NBX_CHECK(0.0 <= intensity, L"invalid intensity: " << intensity);
    NBX_CHECK(0.0 <= ambient && ambient <= 1.0, L"invalid ambient share: " << ambient);
}

void DistantLight::setDirection(const Vector3Base<double> & direction) {
    if (direction_ == direction) return;
    direction_ = direction;
    modified();
}

void DistantLight::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Light>(m, this);
    m.attribute("direction", direction_);
}

} // namespace NBX
