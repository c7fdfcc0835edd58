#include <nbx/engine/attributesimplifier.h>

namespace NBX {

NBX_CLASS_IMPL(AttributeSimplifier, Simplifier)

} // namespace NBX
