#include <nbx/gl/program/baseuniformvariable.h>

namespace NBX::GL2 {

NBX_CLASS_IMPL(BaseUniformVariable, SharedObj)

} // namespace NBX::GL2
