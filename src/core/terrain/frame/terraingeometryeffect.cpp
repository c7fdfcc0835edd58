#include <zmt/core/terrain/frame/terraingeometryeffect.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(TerrainGeometryEffect, NBX::MonoAttribute)

NBX::ID TerrainGeometryEffect::category() const {
    return TerrainGeometryEffect::ClassNameNBX();
}

void TerrainGeometryEffect::touch(GRID::GridTerrainTile *, const NBX::ViewInfo *, unsigned, unsigned,
                                  const NBX::Vector3Base<double> &) const {}

} // namespace ZMT::CORE
