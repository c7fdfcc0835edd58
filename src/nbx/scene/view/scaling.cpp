#include <nbx/scene/view/scaling.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(Scaling, Tf)

Scaling::Scaling(const Vector3Base<double> & factors) : Tf(Matrix4x4Base<double>::scaling(factors)) {}

Vector3Base<double> Scaling::getFactors() const {
    return {getMatrix()(0, 0), getMatrix()(1, 1), getMatrix()(2, 2)};
}

} // namespace NBX
