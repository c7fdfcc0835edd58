#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

class Terrain;
class TerrainTexture;

/// Makes the light maps that a terrain gives of itself: a texel a vertex where the ground is a grid. On the
/// render thread.
class TerrainLightMap {
public:
    using Point = NBX::Vector3Base<double>;

    /// See `Terrain::createStaticLightMap`.
    static NBX::SO<TerrainTexture> createStatic(Terrain & terrain, double shade, const Point & direction);
    /// See `Terrain::createDynamicLightMap`.
    static NBX::SO<TerrainTexture> createDynamic(Terrain & terrain);
};

} // namespace ZMT::CORE
