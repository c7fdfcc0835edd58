#include <nbx/scene/view/ortho.h>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

namespace {

/// An extent to divide by; 1 where there is none.
double divisor(double extent) {
    return extent != 0.0 ? extent : 1.0;
}

} // namespace

NBX_STORED_CLASS_IMPL(Ortho, Projection)

Ortho::Ortho(double left, double right, double bottom, double top, double nearDistance, double farDistance)
    : left_(left), right_(right), bottom_(bottom), top_(top), near_(nearDistance), far_(farDistance) {
    NBX_CHECK(left != right && bottom != top && nearDistance != farDistance, L"projection without volume");
}

Matrix4x4Base<double> Ortho::matrix(double) const {
    const double w = divisor(right_ - left_), h = divisor(top_ - bottom_), d = divisor(far_ - near_);
    return Matrix4x4Base<double>({2.0 / w, 0.0, 0.0, -(right_ + left_) / w, //
                                  0.0, 2.0 / h, 0.0, -(top_ + bottom_) / h, //
                                  0.0, 0.0, -2.0 / d, -(far_ + near_) / d,  //
                                  0.0, 0.0, 0.0, 1.0});
}

void Ortho::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Projection>(m, this);
    m.attribute("left", left_);
    m.attribute("right", right_);
    m.attribute("bottom", bottom_);
    m.attribute("top", top_);
    m.attribute("near", near_);
    m.attribute("far", far_);
}

} // namespace NBX
