#include <nbx/engine/simplifier.h>

namespace NBX {

NBX_CLASS_IMPL(Simplifier, Handler)

ID Simplifier::service() const {
    return ClassNameNBX();
}

} // namespace NBX
