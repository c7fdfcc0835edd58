#include <nbx/scene/view/translation.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(Translation, Tf)

Translation::Translation(const Vector3Base<double> & offset)
    : Tf(Matrix4x4Base<double>::translation(offset)) {}

Vector3Base<double> Translation::getOffset() const {
    return {getMatrix()(0, 3), getMatrix()(1, 3), getMatrix()(2, 3)};
}

} // namespace NBX
