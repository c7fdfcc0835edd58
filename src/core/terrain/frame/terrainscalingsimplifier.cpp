#include <zmt/core/terrain/frame/terrainscalingsimplifier.h>

#include <nbx/engine/engine.h>
#include <nbx/scene/view/scaling.h>
#include <zmt/core/terrain/frame/terrainscaling.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(TerrainScalingSimplifier, NBX::AttributeSimplifier)

NBX::ID TerrainScalingSimplifier::target() const {
    return TerrainScaling::ClassNameNBX();
}

bool TerrainScalingSimplifier::simplify(NBX::Engine * engine, const NBX::Attribute * attribute,
                                        bool entering) {
    const auto * terrainScaling = dynamic_cast<const TerrainScaling *>(attribute);
    if (!terrainScaling) return false;
    const NBX::SO<NBX::Scaling> scaling(new NBX::Scaling(terrainScaling->getScaling()));
    if (entering)
        engine->pushModelMatrix(scaling->getMatrix());
    else
        engine->popModelMatrix();
    return true;
}

NBX_REGISTER_HANDLER(TerrainScalingSimplifier)

} // namespace ZMT::CORE
