#include "terrainlightmap.h"

#include <nbx/image/memoryimage.h>
#include <nbx/scene/attribute/distantlight.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/view/createtexture.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/terraintexture.h>

namespace ZMT::CORE {

namespace {

/// Of light maps, where the ground is no grid.
constexpr int s_lightMapSize = 2100;
/// The sun of a light map stands lower than it is given, so that gentle slopes show.
constexpr double s_sunFlattening = 2.5;

NBX::SO<NBX::MemoryImage> newLightMapImage(const GeometryData * data, NBX::LayerSequence layers) {
    const auto * grid = dynamic_cast<const GridData *>(data);
    const int width = grid ? static_cast<int>(grid->sizeX()) : s_lightMapSize;
    const int height = grid ? static_cast<int>(grid->sizeY()) : s_lightMapSize;
    return new NBX::MemoryImage(width, height, layers, NBX::Image::UInt8, 8, NBX::ML_Interleaved);
}

/// Puts the scene's origin where patches are drawn right, while it lives.
class SceneOriginScope {
public:
    explicit SceneOriginScope(const TerrainLightMap::Point & origin)
        : before_(GeoTransformation::nbx2geoOffset()) {
        GeoTransformation::setNBXOrigin(origin);
    }
    ~SceneOriginScope() { GeoTransformation::setNBXOrigin(before_); }
    SceneOriginScope(const SceneOriginScope &) = delete;
    SceneOriginScope & operator=(const SceneOriginScope &) = delete;

private:
    TerrainLightMap::Point before_;
};

} // namespace

NBX::SO<TerrainTexture> TerrainLightMap::createStatic(Terrain & terrain, double shade,
                                                      const Point & direction) {
    const Point flattened(direction.x, direction.y / s_sunFlattening, direction.z);
    const NBX::SO<NBX::DistantLight> light(new NBX::DistantLight(flattened, NBX::Color::white, 1.0, 0.5));
    const auto image = newLightMapImage(terrain.data().get(), NBX::LS_Luminance);
    const SceneOriginScope scope(terrain.origin());
    return CreateTexture::createShading(&terrain, light, image, NBX::Color(1.0 - shade), Point(1, 1, 1));
}

NBX::SO<TerrainTexture> TerrainLightMap::createDynamic(Terrain & terrain) {
    const auto image = newLightMapImage(terrain.data().get(), NBX::LS_RGB);
    const SceneOriginScope scope(terrain.origin());
    return CreateTexture::createNormal(&terrain, image, Point(1, 1, 1));
}

} // namespace ZMT::CORE
