#include <zmt/core/terrain/frame/terraingeometryeffect.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(TerrainGeometryEffect, NBX::MonoAttribute)

NBX::ID TerrainGeometryEffect::category() const {
    return TerrainGeometryEffect::ClassNameNBX();
}

} // namespace ZMT::CORE
