#include "groundlayers.h"

#include "commands.h"
#include "reports.h"
#include "step.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/attribute/distantlight.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>
#include <zmt/core/terrain/geometry/view/createtexture.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/modulateterraintexturingeffect.h>
#include <zmt/core/terrain/texture/perpixelterrainlightingeffect.h>
#include <zmt/core/terrain/texture/reliefimage.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/gdal/projectionfile.h>
#include <zmt/raster/gdal/warpedimagepyramid.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/simplerasterdata.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramid.h>

namespace {

using Point = NBX::Vector3Base<double>;
using ZMT::CORE::GridData;
using ZMT::CORE::TerrainTexture;
using ZMT::RASTER::TiledGeoImagePyramid;
using Textures = NBX::Array<NBX::SO<TerrainTexture>>;

constexpr double s_anisotropy = 16.0;
constexpr unsigned s_largestLightMap = 8192;
/// OpenGL adds its own light from everywhere, a fifth, to that of the sun.
constexpr double s_unlitGround = 1.0 / 1.2;
/// Where all light comes from everywhere, an effect hides what lies below instead of leaving it as it is.
const double s_mostAmbient = std::nextafter(1.0, 0.0);

NBX::SO<Textures> listOf(const NBX::SO<TerrainTexture> & texture) {
    NBX::SO<Textures> textures(new Textures);
    textures->append(texture);
    return textures;
}

/// Where the cells of the grid lie in the scene.
NBX::Bounds cellBox(const GridData & grid) {
    const Point halfCell(grid.scale().x * 0.5, 0.0, grid.scale().z * 0.5);
    return ZMT::CORE::GeoTransformation::geo2nbxTf(
        NBX::Bounds(grid.boundingBox().getLLF() + grid.origin() - halfCell,
                    grid.boundingBox().getURB() + grid.origin() + halfCell));
}

/// `image` over all cells of the grid.
NBX::SO<TerrainTexture> makeGridTexture(const NBX::SO<NBX::Image> & image, const GridData & grid) {
    const auto wrap = NBX::TextureGL::WM_ClampToEdge;
    const NBX::SO<NBX::ImageTexture2DGL> texture(new NBX::ImageTexture2DGL(
        image, wrap, wrap, NBX::TextureGL::FM_LinearMipmapLinear, NBX::TextureGL::FM_Linear, s_anisotropy));
    return new ZMT::CORE::SimpleTerrainTexture(texture, cellBox(grid), NBX::Matrix4x4Base<double>());
}

NBX::SO<NBX::Attribute> modulate(const NBX::SO<TerrainTexture> & texture) {
    return new ZMT::CORE::ModulateTerrainTexturingEffect(listOf(texture).get());
}

/// The light map of a plain terrain, with exactly the light that is asked for: the map that it makes of
/// itself has a light of its own measure.
NBX::SO<TerrainTexture> bakeLight(const NBX::SO<ZMT::CORE::Terrain> & terrain, const GridData & grid,
                                  const Sunlight & sun) {
    const NBX::SO<NBX::Image> image(new NBX::MemoryImage(int(std::min(grid.sizeX(), s_largestLightMap)),
                                                         int(std::min(grid.sizeY(), s_largestLightMap)),
                                                         NBX::LS_Luminance));
    const NBX::SO<NBX::DistantLight> light(
        new NBX::DistantLight(sun.direction, NBX::Color::white, 1.0, sun.ambient));
    return ZMT::CORE::CreateTexture::createShading(terrain, light, image, NBX::Color(s_unlitGround),
                                                   Point(1.0, 1.0, 1.0));
}

/// The baked light, or the normals for light of each pixel.
NBX::SO<TerrainTexture> makeLightMap(Lighting lighting, const NBX::SO<ZMT::CORE::Terrain> & terrain,
                                     const GridData & grid, const Sunlight & sun) {
    const bool isChunked = dynamic_cast<const ZMT::CORE::ChunkedLodTerrain *>(terrain.get());
    std::optional<Step> step; // chunked terrains show theirs
    if (!isChunked) step.emplace("making a light map");
    NBX::SO<TerrainTexture> map;
    if (lighting == Lighting::Dynamic)
        map = terrain->createDynamicLightMap();
    else if (isChunked)
        map = terrain->createStaticLightMap(sun.ambient, sun.direction);
    else
        map = bakeLight(terrain, grid, sun);
    if (step) step->finish();
    if (map) return map;
    // All other reasons are reported.
    Reports::throwFirst();
    throw DataError("cancelled");
}

NBX::SO<TiledGeoImagePyramid> openPyramid(const std::string & path, const std::string & wkt) {
    const std::wstring name = NBX::StringUtils::Utf8String2WString(path);
    if (const NBX::SO<ZMT::UTIL::TexturePyramid> pyramid = ZMT::UTIL::CompressedTexture::load(name))
        return ZMT::RASTER::WarpedImagePyramid::create(pyramid, ZMT::RASTER::ProjectionFile::read(path).wkt,
                                                       wkt, path);
    return new ZMT::RASTER::ImageFilePyramid(path, wkt);
}

void checkPlace(const TiledGeoImagePyramid & image, const ZMT::RASTER::GeoExtent & terrain,
                const std::string & path) {
    const bool overlaps = image.minX() < terrain.maxX && terrain.minX < image.maxX() &&
                          image.minY() < terrain.maxY && terrain.minY < image.maxY();
    if (!overlaps) throw DataError(path + ": the image lies elsewhere; choose one that covers the area");
}

/// Reads the image once as a whole, as the first picture will: what is damaged is noticed before the long
/// work, and the coarse levels of an image that stores none are made.
void checkContent(const TiledGeoImagePyramid & image, const std::string & path) {
    constexpr unsigned side = 512;
    const auto whole = image.getGeoImage(image.minX(), image.minY(), image.maxX(), image.maxY(), side, side);
    Reports::throwFirst();
    if (!whole) throw DataError(path + ": the image is empty; choose another one");
}

} // namespace

Lighting parseLighting(const std::string & text) {
    if (text == "relief") return Lighting::Relief;
    if (text == "vertex") return Lighting::Vertex;
    if (text == "static") return Lighting::Static;
    if (text == "dynamic") return Lighting::Dynamic;
    throw UsageError("--lighting must be relief, vertex, static or dynamic: " + text);
}

GroundLayer makeHeightColors(const GridData & grid) {
    return {"colours by height",
            modulate(makeGridTexture(ZMT::CORE::ReliefImage::createHeightColors(grid), grid)),
            {}};
}

GroundLayer makeShading(Lighting lighting, const Sunlight & sun, const NBX::SO<ZMT::CORE::Terrain> & terrain,
                        const GridData & grid) {
    if (lighting == Lighting::Static)
        return {"light map", modulate(makeLightMap(lighting, terrain, grid, sun)), {}};
    if (lighting == Lighting::Dynamic)
        return {"light",
                new ZMT::CORE::PerPixelTerrainLightingEffect(makeLightMap(lighting, terrain, grid, sun).get(),
                                                             sun.direction,
                                                             std::min(sun.ambient, s_mostAmbient)),
                {}};
    return {"shading",
            modulate(makeGridTexture(ZMT::CORE::ReliefImage::createShading(grid, sun.direction, sun.ambient),
                                     grid)),
            {}};
}

GroundLayer openImage(const std::string & path, const ZMT::RASTER::GeoExtent & terrain,
                      const std::string & wkt) {
    Step step("reading " + path);
    const auto pyramid = openPyramid(path, wkt);
    checkPlace(*pyramid, terrain, path);
    checkContent(*pyramid, path);
    step.finish();
    const NBX::SO<TerrainTexture> texture(new ZMT::CORE::TiledLODTexture(pyramid.get()));
    return {std::filesystem::path(path).filename().string(),
            new ZMT::CORE::DecalTerrainTexturingEffect(listOf(texture).get()), texture->boundingBox()};
}
