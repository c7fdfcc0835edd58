#include <nbx/engine/monoattributepainter.h>

namespace NBX {

NBX_CLASS_IMPL(MonoAttributePainter, Painter)

} // namespace NBX
