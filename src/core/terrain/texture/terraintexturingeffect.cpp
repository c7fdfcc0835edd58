#include <zmt/core/terrain/texture/terraintexturingeffect.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(TerrainTexturingEffect, NBX::MonoAttribute)

NBX::ID TerrainTexturingEffect::category() const {
    return TerrainTexturingEffect::ClassNameNBX();
}

} // namespace ZMT::CORE
