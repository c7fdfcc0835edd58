#include <nbx/scene/view/perspective.h>

#include <cmath>
#include <numbers>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(Perspective, Projection)

Perspective::Perspective(double fieldOfViewDegrees, double nearDistance, double farDistance)
    : fieldOfView_(fieldOfViewDegrees), near_(nearDistance), far_(farDistance) {
    NBX_CHECK(fieldOfViewDegrees > 0.0 && fieldOfViewDegrees < 180.0, L"field of view out of range");
    NBX_CHECK(nearDistance > 0.0 && nearDistance < farDistance, L"near and far distance out of range");
}

void Perspective::setFieldOfView(double degrees) {
    NBX_CHECK(degrees > 0.0 && degrees < 180.0, L"field of view out of range");
    set(fieldOfView_, degrees);
}

void Perspective::setNear(double distance) {
    NBX_CHECK(distance > 0.0, L"near distance out of range");
    set(near_, distance);
}

void Perspective::setFar(double distance) {
    NBX_CHECK(distance > 0.0, L"far distance out of range");
    set(far_, distance);
}

void Perspective::set(double & field, double value) {
    if (field == value) return;
    field = value;
    modified();
}

Matrix4x4Base<double> Perspective::matrix(double aspect) const {
    // What was reported, or read from a damaged file, still gives a matrix that can be worked with.
    const bool angleIsGood = fieldOfView_ > 0.0 && fieldOfView_ < 180.0;
    const double n = near_ > 0.0 ? near_ : 1.0;
    const double f = far_ > n ? far_ : n * 1000.0;
    const double focal = 1.0 / std::tan((angleIsGood ? fieldOfView_ : 45.0) * std::numbers::pi / 360.0);
    return Matrix4x4Base<double>({aspect > 0.0 ? focal / aspect : focal, 0.0, 0.0, 0.0, //
                                  0.0, focal, 0.0, 0.0,                                 //
                                  0.0, 0.0, -(f + n) / (f - n), -2.0 * f * n / (f - n), //
                                  0.0, 0.0, -1.0, 0.0});
}

void Perspective::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Projection>(m, this);
    m.attribute("fieldOfView", fieldOfView_);
    m.attribute("near", near_);
    m.attribute("far", far_);
}

} // namespace NBX
