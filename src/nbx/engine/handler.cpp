#include <nbx/engine/handler.h>

namespace NBX {

NBX_CLASS_IMPL(Handler, RenderObj)

} // namespace NBX
