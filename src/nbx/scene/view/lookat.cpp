#include <nbx/scene/view/lookat.h>

#include <cmath>

#include <nbx/object/serializationmanager.h>

namespace NBX {

namespace {

/// The coordinate axis that encloses the largest angle with `v`.
Vector3Base<double> mostDistantAxis(const Vector3Base<double> & v) {
    const double x = std::abs(v.x), y = std::abs(v.y), z = std::abs(v.z);
    if (y <= x && y <= z) return {0.0, 1.0, 0.0};
    return z <= x ? Vector3Base<double>(0.0, 0.0, 1.0) : Vector3Base<double>(1.0, 0.0, 0.0);
}

/// Length 1 and at right angles to both; zero when they are parallel within rounding.
Vector3Base<double> rightOf(const Vector3Base<double> & forward, const Vector3Base<double> & up) {
    constexpr double smallestSine2 = 1e-24;
    // The world is left-handed; see the class.
    const Vector3Base<double> right = up.normalized().cross(forward);
    return right.length2() > smallestSine2 ? right.normalized() : Vector3Base<double>();
}

} // namespace

NBX_STORED_CLASS_IMPL(LookAt, SharedObj)

LookAt::LookAt(const Vector3Base<double> & from, const Vector3Base<double> & to,
               const Vector3Base<double> & up)
    : from_(from), to_(to), up_(up) {}

void LookAt::setFrom(const Vector3Base<double> & from) {
    set(from_, from);
}

void LookAt::setTo(const Vector3Base<double> & to) {
    set(to_, to);
}

void LookAt::setUp(const Vector3Base<double> & up) {
    set(up_, up);
}

void LookAt::set(Vector3Base<double> & field, const Vector3Base<double> & value) {
    if (field == value) return;
    field = value;
    modified();
}

Matrix4x4Base<double> LookAt::matrix() const {
    Vector3Base<double> forward = (to_ - from_).normalized();
    if (forward == Vector3Base<double>()) forward = {0.0, 0.0, 1.0};
    Vector3Base<double> right = rightOf(forward, up_);
    if (right == Vector3Base<double>()) right = rightOf(forward, mostDistantAxis(forward));
    const Vector3Base<double> up = forward.cross(right);
    return Matrix4x4Base<double>({right.x, right.y, right.z, -right.dot(from_),           //
                                  up.x, up.y, up.z, -up.dot(from_),                       //
                                  -forward.x, -forward.y, -forward.z, forward.dot(from_), //
                                  0.0, 0.0, 0.0, 1.0});
}

void LookAt::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<SharedObj>(m, this);
    m.attribute("from", from_);
    m.attribute("to", to_);
    m.attribute("up", up_);
}

} // namespace NBX
