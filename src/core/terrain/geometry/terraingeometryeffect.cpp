#include <zmt/core/terrain/geometry/terraingeometryeffect.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(TerrainGeometryEffect, NBX::MonoAttribute)

NBX::ID TerrainGeometryEffect::category() const {
    return TerrainGeometryEffect::ClassNameNBX();
}

} // namespace ZMT::CORE
