#include <nbx/scene/projection.h>

namespace NBX {

NBX_CLASS_IMPL(Projection, SharedObj)

} // namespace NBX
