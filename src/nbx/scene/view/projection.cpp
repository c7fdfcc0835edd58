#include <nbx/scene/view/projection.h>

namespace NBX {

NBX_CLASS_IMPL(Projection, SharedObj)

} // namespace NBX
