#include <nbx/scene/view/projection.h>

namespace NBX {

NBX_CLASS_IMPL(Projection, SharedObj)

Matrix4x4Base<double> Projection::matrixInViewport(unsigned width, unsigned height) const {
    return matrix(static_cast<double>(width) / height);
}

} // namespace NBX
