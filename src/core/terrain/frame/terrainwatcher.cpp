#include <zmt/core/terrain/frame/terrainwatcher.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(TerrainWatcher, NBX::MonoAttribute)

NBX::ID TerrainWatcher::category() const {
    return TerrainWatcher::ClassNameNBX();
}

} // namespace ZMT::CORE
