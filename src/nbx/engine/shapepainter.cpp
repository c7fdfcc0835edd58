#include <nbx/engine/shapepainter.h>

namespace NBX {

NBX_CLASS_IMPL(ShapePainter, Painter)

} // namespace NBX
