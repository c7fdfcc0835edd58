#include <nbx/object/callback.h>

namespace NBX {

NBX_CLASS_IMPL(CallbackBase, SharedObj)

} // namespace NBX
