#include <nbx/engine/painter.h>

namespace NBX {

NBX_CLASS_IMPL(Painter, Handler)

ID Painter::service() const {
    return ClassNameNBX();
}

} // namespace NBX
