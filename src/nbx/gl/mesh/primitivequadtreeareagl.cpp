#include <nbx/gl/mesh/primitivequadtreeareagl.h>

namespace NBX {

NBX_CLASS_IMPL(PrimitiveQuadTreeAreaGL, MonoAttribute)

ID PrimitiveQuadTreeAreaGL::category() const {
    return ClassNameNBX();
}

} // namespace NBX
