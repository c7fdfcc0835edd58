#include <zmt/core/terrain/frame/terrainscaling.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(TerrainScaling, NBX::MonoAttribute)

void TerrainScaling::setScaling(const NBX::Vector3Base<double> & scaling) {
    if (scaling_ == scaling) return;
    scaling_ = scaling;
    modified();
}

NBX::ID TerrainScaling::category() const {
    return TerrainScaling::ClassNameNBX();
}

} // namespace ZMT::CORE
