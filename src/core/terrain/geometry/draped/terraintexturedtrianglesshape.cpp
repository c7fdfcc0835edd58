#include "terraintexturedtrianglesshape.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(TerrainTexturedTrianglesShape, NBX::Shape)

} // namespace ZMT::CORE
