#include "landscape.h"

#include "commands.h"
#include "terraininput.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include <CLI/CLI.hpp>

#include <nbx/container/array.h>
#include <nbx/gl/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/progress.h>
#include <zmt/core/terrain/geometry/geotransformation.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/modulateterraintexturingeffect.h>
#include <zmt/core/terrain/texture/reliefimage.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>
#include <zmt/raster/gdal/imagefile.h>
#include <zmt/raster/simplerasterdata.h>

namespace {

using Point = NBX::Vector3Base<double>;
using ZMT::CORE::GridData;
using ZMT::CORE::TerrainTexture;
using Textures = NBX::Array<NBX::SO<TerrainTexture>>;

constexpr unsigned s_largestImage = 8192;
constexpr double s_anisotropy = 16.0;
constexpr double s_ambient = 0.35;
/// From the north-west, as on relief maps.
const Point s_light(-1.0, 1.2, 1.0);

NBX::Bounds enlarged(const NBX::Bounds & box, double byX, double byZ) {
    const Point margin(byX, 0.0, byZ);
    return {box.getLLF() - margin, box.getURB() + margin};
}

NBX::SO<TerrainTexture> makeTexture(const NBX::SO<NBX::Image> & image, const NBX::Bounds & box,
                                    NBX::TextureGL::WrapMode wrap, const NBX::Color & border = NBX::Color()) {
    NBX::SO<NBX::ImageTexture2DGL> texture(new NBX::ImageTexture2DGL(
        image, wrap, wrap, NBX::TextureGL::FM_LinearMipmapLinear, NBX::TextureGL::FM_Linear, s_anisotropy));
    texture->setBorderColor(border);
    return new ZMT::CORE::SimpleTerrainTexture(texture, box, NBX::Matrix4x4Base<double>());
}

/// Where the cells of the grid lie in the scene.
NBX::Bounds cellBox(const GridData & grid) {
    const NBX::Bounds box = ZMT::CORE::GeoTransformation::geo2nbxTf(NBX::Bounds(
        grid.boundingBox().getLLF() + grid.origin(), grid.boundingBox().getURB() + grid.origin()));
    return enlarged(box, grid.scale().x * 0.5, grid.scale().z * 0.5);
}

NBX::Bounds sceneBox(const ZMT::RASTER::GeoExtent & e) {
    return ZMT::CORE::GeoTransformation::geo2nbxTf(
        NBX::Bounds(Point(e.minX, 0.0, e.minY), Point(e.maxX, 0.0, e.maxY)));
}

/// Gives pixels without image the colour of the last one before them in `line` that has one.
void spreadColors(std::uint8_t * line, std::size_t pixels, std::ptrdiff_t step) {
    const std::uint8_t * last = nullptr;
    for (std::size_t x = 0; x < pixels; ++x, line += step) {
        if (line[3] != 0)
            last = line;
        else if (last)
            std::memcpy(line, last, 3);
    }
}

/// The border of an image fades to transparency through its own colours, not through black.
void spreadColors(NBX::Image & image, unsigned width, unsigned height) {
    for (unsigned y = 0; y < height; ++y) {
        std::uint8_t * line = image.lineComponentsU8(int(y));
        spreadColors(line, width, 4);
        spreadColors(line + 4 * std::size_t(width - 1), width, -4);
    }
}

/// The average colour of the outer pixels, wholly transparent.
NBX::Color transparentBorderColor(const NBX::Image & image) {
    double red = 0.0, green = 0.0, blue = 0.0;
    unsigned pixels = 0;
    for (int y = 0; y < image.height(); ++y) {
        const bool isOuterLine = y == 0 || y + 1 == image.height();
        for (int x = 0; x < image.width(); x += isOuterLine ? 1 : std::max(1, image.width() - 1)) {
            const unsigned char * pixel = image.pixelComponentsU8(x, y);
            red += pixel[0];
            green += pixel[1];
            blue += pixel[2];
            ++pixels;
        }
    }
    const double scale = 1.0 / (255.0 * std::max(pixels, 1U));
    return NBX::Color(red * scale, green * scale, blue * scale, 0.0);
}

/// The border colour is transparent, so that nothing shows beyond the image.
NBX::SO<TerrainTexture> makeImageTexture(const ZMT::RASTER::GeoImageData & data) {
    NBX::SO<NBX::Image> image(new NBX::MemoryImage(int(data.width), int(data.height), NBX::LS_RGBA));
    const std::size_t line = std::size_t(data.width) * 4;
    for (unsigned y = 0; y < data.height; ++y)
        std::memcpy(image->lineComponentsU8(int(y)), data.rgba.data() + y * line, line);
    spreadColors(*image, data.width, data.height);
    return makeTexture(image, sceneBox(data.extent), NBX::TextureGL::WM_ClampToBorder,
                       transparentBorderColor(*image));
}

NBX::SO<Textures> listOf(const NBX::SO<TerrainTexture> & texture) {
    NBX::SO<Textures> textures(new Textures);
    textures->append(texture);
    return textures;
}

ZMT::RASTER::GeoImageData readImage(const std::string & path, const ZMT::RASTER::GeoRaster & terrain) {
    const auto & raster = *terrain.raster;
    const ZMT::RASTER::GeoExtent extent{raster.minX(), raster.minY(), raster.maxX(), raster.maxY()};
    NBX::Progress progress("reading " + path);
    auto image = ZMT::RASTER::ImageFile(path).warp(terrain.reference.wkt, extent, s_largestImage, &progress);
    if (!image) throw DataError("cancelled");
    progress.finish();
    return std::move(*image);
}

void checkOptions(const LandscapeOptions & options) {
    checkMaxVertices(options.maxVertices);
    if (!(options.exaggeration > 0.0) || !(options.exaggeration <= 1000.0))
        throw UsageError("--exaggeration must be above 0, and at most 1000");
}

} // namespace

void addLandscapeOptions(CLI::App & command, LandscapeOptions & options) {
    command
        .add_option("--image", options.images,
                    "Georeferenced image to drape; may be repeated, later ones on top")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_option("--exaggeration", options.exaggeration, "Factor of the heights")
        ->capture_default_str();
    command.add_option("--max-vertices", options.maxVertices, "Budget of a node of the tree, 50 to 32000")
        ->capture_default_str();
}

Landscape::Landscape(const LandscapeOptions & options) {
    checkOptions(options);
    const auto raster = readTerrainRaster(options.terrain, false);
    std::vector<ZMT::RASTER::GeoImageData> images;
    for (const std::string & path : options.images)
        images.push_back(readImage(path, raster));
    grid_ = makeGrid(raster);
    const auto root = buildTree(grid_, options.maxVertices, buildMilliseconds_);
    terrain_ = new ZMT::CORE::Terrain(grid_.get(), root.get());

    node_ = new NBX::SceneThing;
    scaling_ = new ZMT::CORE::TerrainScaling(Point(1.0, options.exaggeration, 1.0));
    node_->append(scaling_.get());
    layOnRelief(options.plain);
    for (std::size_t i = 0; i < images.size() && !options.plain; ++i)
        layOn(std::filesystem::path(options.images[i]).filename().string(),
              new ZMT::CORE::DecalTerrainTexturingEffect(listOf(makeImageTexture(images[i])).get()));
    if (!images.empty()) interest_ = sceneBox(images.back().extent);
    node_->append(terrain_.get());
}

void Landscape::layOnRelief(bool plain) {
    const NBX::Bounds box = cellBox(*grid_);
    const auto texture = [&](const NBX::SO<NBX::Image> & image) {
        return listOf(makeTexture(image, box, NBX::TextureGL::WM_ClampToEdge));
    };
    if (!plain)
        layOn("colours by height", new ZMT::CORE::ModulateTerrainTexturingEffect(
                                       texture(ZMT::CORE::ReliefImage::createHeightColors(*grid_)).get()));
    layOn("shading", new ZMT::CORE::ModulateTerrainTexturingEffect(
                         texture(ZMT::CORE::ReliefImage::createShading(*grid_, s_light, s_ambient)).get()));
}

void Landscape::layOn(const std::string & name, NBX::Attribute * effect) {
    layers_.push_back({name, effect});
    node_->append(effect);
}

double Landscape::exaggeration() const {
    return scaling_->getScaling().y;
}

void Landscape::setExaggeration(double exaggeration) {
    scaling_->setScaling(Point(1.0, exaggeration, 1.0));
}

NBX::Bounds Landscape::box() const {
    const NBX::Bounds box = terrain_->boundingBox();
    const auto scaled = [&](const Point & p) { return Point(p.x, p.y * exaggeration(), p.z); };
    return {scaled(box.getLLF()), scaled(box.getURB())};
}
