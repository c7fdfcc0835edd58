#include <nbx/scene/shape/shape.h>

namespace NBX {

NBX_CLASS_IMPL(Shape, RenderObj)

Bounds Shape::boundingBox() const {
    return Bounds();
}

} // namespace NBX
