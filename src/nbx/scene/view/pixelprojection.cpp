#include <nbx/scene/view/pixelprojection.h>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(PixelProjection, Projection)

PixelProjection::PixelProjection(double nearDistance, double farDistance)
    : near_(nearDistance), far_(farDistance) {
    NBX_CHECK(nearDistance != farDistance, L"projection without volume");
}

Matrix4x4Base<double> PixelProjection::matrixOfBox(double width, double height) const {
    const double depth = far_ != near_ ? far_ - near_ : 1.0;
    return Matrix4x4Base<double>({2.0 / width, 0.0, 0.0, -1.0,                     //
                                  0.0, 2.0 / height, 0.0, -1.0,                    //
                                  0.0, 0.0, -2.0 / depth, -(far_ + near_) / depth, //
                                  0.0, 0.0, 0.0, 1.0});
}

Matrix4x4Base<double> PixelProjection::matrix(double aspect) const {
    return matrixOfBox(aspect > 0.0 ? aspect : 1.0, 1.0);
}

Matrix4x4Base<double> PixelProjection::matrixInViewport(unsigned width, unsigned height) const {
    return matrixOfBox(width, height);
}

void PixelProjection::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Projection>(m, this);
    m.attribute("near", near_);
    m.attribute("far", far_);
}

} // namespace NBX
