#include <nbx/engine/shapesimplifier.h>

namespace NBX {

NBX_CLASS_IMPL(ShapeSimplifier, Simplifier)

} // namespace NBX
