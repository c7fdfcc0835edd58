#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(TerrainTexturedGeometry, NBX::PolyAttribute)

NBX::ID TerrainTexturedGeometry::category() const {
    return TerrainTexturedGeometry::ClassNameNBX();
}

} // namespace ZMT::CORE
