// Pictures of the ground first: made from the grid, drawn from above, or opened as pyramids and checked. Then
// textures of them, and last the layers, each an effect over one texture. What is made here covers whole
// cells, so it reaches half a cell beyond the outer vertices.

#include "groundlayers.h"

#include "errors.h"
#include "program/stage.h"
#include "reports.h"
#include "step.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/terrain/geometry/view/createtexture.h>
#include <zmt/core/terrain/texture/modulateterraintexturingeffect.h>
#include <zmt/core/terrain/texture/perpixelterrainlightingeffect.h>
#include <zmt/core/terrain/texture/reliefimage.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/gdal/warpedimagepyramid.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>
#include <zmt/raster/simplerasterdata.h>
#include <zmt/util/compressedtexture/coarselevels.h>

namespace {

using Point = NBX::Vector3Base<double>;
using ZMT::CORE::GridData;
using ZMT::CORE::ReliefImage;
using ZMT::CORE::TerrainTexture;
using ZMT::RASTER::TiledGeoImagePyramid;
using ZMT::UTIL::CoarseLevels;
using Textures = NBX::Array<NBX::SO<TerrainTexture>>;

constexpr double s_anisotropy = 16.0;
constexpr unsigned s_largestLightMap = 8192;
/// Texels along a cell where cells have shapes of their own, so that light ends where a wall does.
constexpr double s_texelsOfShapedCell = 4.0;
/// And of all cells together, unless that were less than one each: 48 MiB of normals, as many bytes again of
/// light, and a third of these for coarser levels.
constexpr double s_mostTexelsOfShapedCells = 4096.0 * 4096.0;
/// Where all light comes from everywhere, an effect hides what lies below instead of leaving it as it is.
const double s_mostAmbient = std::nextafter(1.0, 0.0);

NBX::SO<Textures> listOf(const NBX::SO<TerrainTexture> & texture) {
    NBX::SO<Textures> textures(new Textures);
    textures->append(texture);
    return textures;
}

/// A picture of the ground, and its outer edges in geo coordinates.
struct GroundImage {
    NBX::SO<NBX::Image> image;
    NBX::Bounds box;
};

/// Where the cells of the grid lie, in geo coordinates.
NBX::Bounds cellBox(const GridData & grid) {
    const Point halfCell(grid.scale().x * 0.5, 0.0, grid.scale().z * 0.5);
    const NBX::Bounds geoBox = ZMT::CORE::LocalFrame(grid.origin()).toGeo(grid.boundingBox());
    return {geoBox.getLLF() - halfCell, geoBox.getURB() + halfCell};
}

/// `image` over all cells of the grid.
NBX::SO<TerrainTexture> makeGridTexture(const NBX::SO<NBX::Image> & image, const GridData & grid) {
    const auto wrap = NBX::TextureGL::WM_ClampToEdge;
    const NBX::SO<NBX::ImageTexture2DGL> texture(new NBX::ImageTexture2DGL(
        image, wrap, wrap, NBX::TextureGL::FM_LinearMipmapLinear, NBX::TextureGL::FM_Linear, s_anisotropy));
    return new ZMT::CORE::SimpleTerrainTexture(
        texture, ZMT::CORE::GeoTransformation::geo2nbxTf(cellBox(grid)), NBX::Matrix4x4Base<double>());
}

/// Of any size: the parts that the view needs go to OpenGL.
NBX::SO<TerrainTexture> makeTiledTexture(const GroundImage & ground) {
    const Point southWest = ground.box.getLLF(), northEast = ground.box.getURB();
    const NBX::SO<TiledGeoImagePyramid> pyramid(new ZMT::RASTER::MemoryTiledGeoImagePyramid(
        ground.image.get(), NBX::Bounds({southWest.x, southWest.z, 0.0}, {northEast.x, northEast.z, 0.0})));
    return new ZMT::CORE::TiledLODTexture(pyramid.get());
}

NBX::SO<NBX::Attribute> modulate(const NBX::SO<TerrainTexture> & texture) {
    return new ZMT::CORE::ModulateTerrainTexturingEffect(listOf(texture).get());
}

GroundLayer layHeightColors(const NBX::SO<NBX::Image> & image, const GridData & grid) {
    const Stage stage(L"shade");
    return {LayerKind::HeightColors, "colours by height", modulate(makeGridTexture(image, grid)), {}};
}

/// A picture of the terrain from above, whose colours are the normals of its exaggerated surface.
GroundImage drawNormals(const NBX::SO<ZMT::CORE::Terrain> & terrain, const GridData & grid,
                        double exaggeration) {
    const double density = texelsOfShapedCell(grid.sizeX(), grid.sizeY());
    const auto texels = [density](unsigned vertices) {
        return int(std::min(vertices * density, double(s_largestLightMap)));
    };
    const NBX::SO<NBX::Image> image(
        new NBX::MemoryImage(texels(grid.sizeX()), texels(grid.sizeY()), NBX::LS_RGB));
    const Point scale(1.0, 1.0 / exaggeration, 1.0);
    if (!ZMT::CORE::CreateTexture::createNormal(terrain, image, scale)) {
        // All other reasons are reported.
        Reports::throwFirst();
        throw DataError("cancelled");
    }
    return {image, ZMT::CORE::GeoTransformation::nbx2geoTf(terrain->boundingBox())};
}

/// The baked light, or the normals for light of each pixel. Terrains make such maps of themselves, but those
/// know no exaggeration, and their sun is flattened and moves with the shape of the terrain. Cells with
/// shapes have normals that only painters know.
NBX::SO<TerrainTexture> makeLightMap(Lighting lighting, const NBX::SO<ZMT::CORE::Terrain> & terrain,
                                     const GridData & grid, const Sunlight & sun, double exaggeration) {
    const Stage stage(L"shade");
    Step step("making a light map");
    GroundImage map{nullptr, cellBox(grid)};
    const bool isStatic = lighting != Lighting::Dynamic;
    if (grid.hasCellShapes()) {
        map = drawNormals(terrain, grid, exaggeration);
        if (isStatic) map.image = ReliefImage::createShading(*map.image, sun.direction, sun.ambient);
    } else if (isStatic) {
        map.image =
            ReliefImage::createShading(grid, sun.direction, sun.ambient, s_largestLightMap, exaggeration);
    } else {
        map.image = ReliefImage::createNormals(grid, s_largestLightMap, exaggeration);
    }
    step.finish();
    return makeTiledTexture(map);
}

/// Reads the image once as a whole, as the first picture will: what is damaged is noticed before the long
/// work, and the coarse levels of an image that stores none are made.
void checkContent(const TiledGeoImagePyramid & image, const std::string & path) {
    constexpr unsigned side = 512;
    const auto whole = image.getGeoImage(image.minX(), image.minY(), image.maxX(), image.maxY(), side, side);
    Reports::throwFirst();
    if (!whole) throw DataError(path + ": the image is empty; choose another one");
}

/// A large image that stores no coarse levels gets them, in its own system, so that they serve any terrain.
NBX::SO<TiledGeoImagePyramid> withCoarseLevels(const NBX::SO<TiledGeoImagePyramid> & pyramid,
                                               const std::string & path, const ImageLook & look,
                                               const std::string & wkt) {
    using ZMT::RASTER::ImageFilePyramid;
    const auto * stored = dynamic_cast<const ImageFilePyramid *>(pyramid.get());
    if (!stored || !CoarseLevels::areNeeded(*stored)) return pyramid;
    const NBX::SO<ImageFilePyramid> image(new ImageFilePyramid(path, "", look.colors));
    NBX::SO<TiledGeoImagePyramid> complete;
    try {
        complete = CoarseLevels(look.cache ? CoarseLevels::userFolder() : "").complete(image);
    } catch (const NBX::IOException & error) {
        writeError(std::string("warning: ") + error.what() +
                   "; drawing takes its time: 'zmt build pyramid' or gdaladdo make such levels once");
        return pyramid;
    }
    Reports::throwFirst();
    if (!complete) throw DataError("cancelled");
    return ZMT::RASTER::WarpedImagePyramid::create(complete, image->reference().wkt, wkt, path);
}

} // namespace

double texelsOfShapedCell(unsigned columns, unsigned rows) {
    const double cells = std::max(1.0, double(columns) * rows);
    return std::clamp(std::sqrt(s_mostTexelsOfShapedCells / cells), 1.0, s_texelsOfShapedCell);
}

NBX::SO<ZMT::CORE::DecalTerrainTexturingEffect> makeDecal(const NBX::SO<TerrainTexture> & texture,
                                                          double opacity) {
    NBX::SO<ZMT::CORE::DecalTerrainTexturingEffect> decal(
        new ZMT::CORE::DecalTerrainTexturingEffect(listOf(texture).get()));
    decal->setOpacity(opacity);
    return decal;
}

void checkPlace(const TiledGeoImagePyramid & image, const ZMT::RASTER::GeoExtent & terrain,
                const std::string & path) {
    const bool overlaps = image.minX() < terrain.maxX && terrain.minX < image.maxX() &&
                          image.minY() < terrain.maxY && terrain.minY < image.maxY();
    if (!overlaps) throw DataError(path + ": the image lies elsewhere; choose one that covers the area");
}

GroundLayer makeHeightColors(const GridData & grid) {
    return layHeightColors(ReliefImage::createHeightColors(grid), grid);
}

GroundLayer makeHeightColors(const GridData & grid, std::vector<ReliefImage::Tint> tints) {
    for (ReliefImage::Tint & tint : tints)
        tint.height -= grid.origin().y;
    return layHeightColors(ReliefImage::createHeightColors(grid, tints), grid);
}

GroundLayer makeShading(Lighting lighting, const Sunlight & sun, const NBX::SO<ZMT::CORE::Terrain> & terrain,
                        const GridData & grid, double exaggeration) {
    // A quick shading knows the vertices of the grid alone.
    if (lighting == Lighting::Static || (lighting == Lighting::Relief && grid.hasCellShapes()))
        return {LayerKind::Shading,
                lighting == Lighting::Static ? "light map" : "shading",
                modulate(makeLightMap(lighting, terrain, grid, sun, exaggeration)),
                {}};
    if (lighting == Lighting::Dynamic)
        return {LayerKind::Shading,
                "light",
                new ZMT::CORE::PerPixelTerrainLightingEffect(
                    makeLightMap(lighting, terrain, grid, sun, exaggeration).get(), sun.direction,
                    std::min(sun.ambient, s_mostAmbient)),
                {}};
    const auto shading =
        ReliefImage::createShading(grid, sun.direction, sun.ambient, ReliefImage::s_maxSide, exaggeration);
    return {LayerKind::Shading, "shading", modulate(makeGridTexture(shading, grid)), {}};
}

GroundLayer makeStreamedShading(const std::optional<Lighting> & lighting, const std::optional<Sunlight> & sun,
                                const StreamedTerrain & streamed, const std::string & name,
                                double exaggeration) {
    using ZMT::CORE::GRID::AsyncGridTerrain;
    const AsyncGridTerrain::LightMap kind = streamed.lightMapKind;
    const std::string & problem = streamed.lightMapProblem;
    const auto refuse = [&](const std::string & wish, const std::string & advice) {
        if (!problem.empty())
            throw DataError(name + ": the light map behind the terrain cannot be read: " + problem);
        throw UsageError(wish + ": the file has no such light; leave it out, or build " + name + " with " +
                         advice);
    };
    if (lighting == Lighting::Static && kind != AsyncGridTerrain::LM_Light)
        refuse("--lighting static", "--lighting static");
    if (lighting == Lighting::Dynamic && kind != AsyncGridTerrain::LM_Normals)
        refuse("--lighting dynamic", "--lighting normals");
    const Sunlight light = sun.value_or(defaultSun());
    if (!problem.empty() && !lighting)
        NBX_REPORT(2, L"light map",
                   L"the light map behind the terrain cannot be read, and a relief is drawn instead: "
                       << NBX::StringUtils::Utf8String2WString(problem + ": " + name));
    if (lighting == Lighting::Relief || kind == AsyncGridTerrain::LM_None)
        return makeShading(Lighting::Relief, light, streamed.terrain, *streamed.overview, exaggeration);
    if (sun && kind == AsyncGridTerrain::LM_Light)
        throw UsageError("--light: the light of " + name +
                         " is baked; leave it out, or build it with --lighting normals");
    if (kind == AsyncGridTerrain::LM_Light)
        return {LayerKind::Shading, "light map", modulate(streamed.lightMap), {}};
    return {LayerKind::Shading,
            "light",
            new ZMT::CORE::PerPixelTerrainLightingEffect(streamed.lightMap.get(), light.direction,
                                                         std::min(light.ambient, s_mostAmbient)),
            {}};
}

GroundLayer layStreamedImage(const std::string & locator, const StreamedTexture & opened,
                             const ImageLook & look, const ZMT::RASTER::GeoExtent & terrain) {
    if (look.opacity != 1.0 || !look.colors.text().empty())
        throw UsageError(
            "--opacity, --bands, --stretch and --gamma are for images, and " + shownName(locator) +
            " is a streaming texture; leave them out, or give all but --opacity to 'zmt build texture'");
    const NBX::Bounds box = opened.texture->boundingBox();
    const Point low = box.getLLF(), high = box.getURB();
    const bool overlaps =
        low.x < terrain.maxX && terrain.minX < high.x && low.z < terrain.maxY && terrain.minY < high.z;
    if (!overlaps)
        throw DataError(shownName(locator) + ": the image lies elsewhere; choose one that covers the area");
    return {LayerKind::Image,
            fileNameOf(locator),
            makeDecal(opened.texture),
            ZMT::CORE::GeoTransformation::geo2nbxTf(box),
            opened.file,
            locator};
}

Sunlight defaultSun() {
    return {Point(-1.0, 1.2, 1.0).normalized(), 0.35};
}

NBX::SO<TiledGeoImagePyramid> openPixels(const std::string & path, const ImageLook & look,
                                         const ZMT::RASTER::GeoExtent & terrain, const std::string & wkt) {
    const auto pyramid = ZMT::RASTER::GeoFile::openImage(path, wkt, look.colors);
    checkPlace(*pyramid, terrain, path);
    return withCoarseLevels(pyramid, path, look, wkt);
}

GroundLayer openImage(const std::string & path, const ImageLook & look,
                      const ZMT::RASTER::GeoExtent & terrain, const std::string & wkt) {
    const Stage stage(L"read");
    const auto pyramid = openPixels(path, look, terrain, wkt);
    Step step("reading " + path);
    checkContent(*pyramid, path);
    step.finish();
    const NBX::SO<TerrainTexture> texture(new ZMT::CORE::TiledLODTexture(pyramid.get()));
    GroundLayer layer{LayerKind::Image, fileNameOf(path), makeDecal(texture, look.opacity),
                      texture->boundingBox()};
    layer.source = path;
    layer.opacity = look.opacity;
    return layer;
}
