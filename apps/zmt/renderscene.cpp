#include "renderscene.h"

#include "commands.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <nbx/container/array.h>
#include <nbx/gl/imagetexture2dgl.h>
#include <nbx/gl/polygonmodegl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/progress.h>
#include <nbx/scene/camera.h>
#include <nbx/scene/perspective.h>
#include <nbx/scene/scaling.h>
#include <zmt/core/terrain/geometry/geotransformation.h>
#include <zmt/core/terrain/geometry/terrain.h>
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
constexpr double s_fieldOfView = 45.0;
constexpr double s_anisotropy = 16.0;
constexpr double s_ambient = 0.35;
/// From the north-west, as on relief maps.
const Point s_light(-1.0, 1.2, 1.0);

constexpr unsigned s_glLine = 0x1B01;

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

/// Colours by height and shading, which cover the grid.
NBX::SO<Textures> makeReliefTextures(const GridData & grid, bool plain) {
    const NBX::Bounds box = ZMT::CORE::GeoTransformation::geo2nbxTf(NBX::Bounds(
        grid.boundingBox().getLLF() + grid.origin(), grid.boundingBox().getURB() + grid.origin()));
    const NBX::Bounds covered = enlarged(box, grid.scale().x * 0.5, grid.scale().z * 0.5);
    NBX::SO<Textures> textures(new Textures);
    if (!plain)
        textures->append(makeTexture(ZMT::CORE::ReliefImage::createHeightColors(grid), covered,
                                     NBX::TextureGL::WM_ClampToEdge));
    textures->append(makeTexture(ZMT::CORE::ReliefImage::createShading(grid, s_light, s_ambient), covered,
                                 NBX::TextureGL::WM_ClampToEdge));
    return textures;
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

/// Where the camera stands and how far it sees, in scene coordinates with the heights exaggerated.
class CameraSetUp {
public:
    /// `interest` is what a close-up should show, in scene coordinates; undefined for no preference.
    CameraSetUp(const GridData & grid, double exaggeration, const NBX::Bounds & interest)
        : grid_(grid), exaggeration_(exaggeration), interest_(interest),
          offset_(grid.origin() + ZMT::CORE::GeoTransformation::geo2nbxOffset()) {
        const NBX::Bounds box = grid.boundingBox();
        box_ = NBX::Bounds(scaled(box.getLLF() + offset_), scaled(box.getURB() + offset_));
        size_ = std::max(box_.diagonal().x, box_.diagonal().z);
    }

    NBX::SO<NBX::Camera> make(const View & view) const {
        const auto [eye, aim] = view.coordinates ? given(*view.coordinates) : named(view.name);
        const double depth = (box_.center() - eye).length() + box_.diagonal().length();
        const double nearest = (box_.nearestPoint(eye) - eye).length();
        const double near = std::max(nearest * 0.5, depth * 1e-4);
        NBX::SO<NBX::LookAt> lookAt(new NBX::LookAt(eye, aim, Point(0.0, 1.0, 0.0)));
        if (eye.x == aim.x && eye.z == aim.z) lookAt->setUp(Point(0.0, 0.0, 1.0));
        NBX::SO<NBX::Perspective> perspective(new NBX::Perspective(s_fieldOfView, near, depth));
        return new NBX::Camera(lookAt.get(), perspective.get());
    }

private:
    using EyeAndAim = std::pair<Point, Point>;

    Point scaled(const Point & p) const { return {p.x, p.y * exaggeration_, p.z}; }

    EyeAndAim given(const std::array<double, 6> & c) const {
        const auto point = [this](double x, double y, double height) {
            return scaled(ZMT::CORE::GeoTransformation::geo2nbxTf(Point(x, height, y)));
        };
        return {point(c[0], c[1], c[2]), point(c[3], c[4], c[5])};
    }

    EyeAndAim named(const std::string & name) const {
        const Point centre = box_.center();
        if (name == "north") return {Point(centre.x, box_.getURB().y + size_ * 1.25, centre.z), centre};
        if (name == "closeup") return closeUp();
        return {centre + Point(size_ * 0.12, size_ * 0.66 + box_.diagonal().y, -size_ * 1.05),
                centre - Point(0.0, 0.0, size_ * 0.12)};
    }

    /// Over a slope, looking at the highest place around which all heights are known.
    EyeAndAim closeUp() const {
        const Point summit = findSummit();
        const double distance = size_ * 0.1;
        Point eye = summit + Point(-distance * 0.4, 0.0, -distance);
        eye.x = std::clamp(eye.x, box_.getLLF().x, box_.getURB().x);
        eye.y = summit.y + distance * 0.35;
        return {eye, summit - Point(0.0, distance * 0.1, 0.0)};
    }

    /// The highest vertex among the blocks around which fewest heights are unknown.
    Point findSummit() const {
        Block best{grid_.vertex(0U, 0U), SIZE_MAX};
        for (unsigned j = 1; j + 1 < s_blocks; ++j)
            for (unsigned i = 1; i + 1 < s_blocks; ++i) {
                const Block block = measureBlock(i, j);
                if (!std::isfinite(block.summit.y) || !isOfInterest(block.summit)) continue;
                const bool isHigher = block.unknown == best.unknown && block.summit.y > best.summit.y;
                if (block.unknown < best.unknown || isHigher) best = block;
            }
        return scaled(best.summit + offset_);
    }

    struct Block {
        Point summit;        ///< in coordinates of the grid
        std::size_t unknown; ///< undefined heights in the block and in those around it
    };

    Block measureBlock(unsigned i, unsigned j) const {
        const auto column = [&](unsigned block) { return std::size_t(block) * grid_.sizeX() / s_blocks; };
        const auto row = [&](unsigned block) { return std::size_t(block) * grid_.sizeY() / s_blocks; };
        Block result{Point(0.0, -HUGE_VAL, 0.0), 0};
        for (std::size_t y = row(j - 1); y < row(j + 2); ++y)
            for (std::size_t x = column(i - 1); x < column(i + 2); ++x) {
                const Point p = grid_.vertex(unsigned(x), unsigned(y));
                result.unknown += grid_.isUndefinedHeightValue(p.y);
                const bool isInside = x >= column(i) && x < column(i + 1) && y >= row(j) && y < row(j + 1);
                if (isInside && p.y > result.summit.y) result.summit = p;
            }
        return result;
    }

    bool isOfInterest(const Point & p) const {
        return !interest_.isDefined() || interest_.containsPointInPlane(p + offset_, 0, 2);
    }

    static constexpr unsigned s_blocks = 48;

    const GridData & grid_;
    double exaggeration_;
    NBX::Bounds interest_;
    Point offset_; ///< from coordinates of the grid to the scene
    NBX::Bounds box_;
    double size_;
};

} // namespace

View parseView(const std::string & text) {
    if (text == "overview" || text == "closeup" || text == "north") return {text, {}};
    std::array<double, 6> c{};
    char rest = 0;
    const int read = std::sscanf(text.c_str(), "%lf,%lf,%lf,%lf,%lf,%lf%c", &c[0], &c[1], &c[2], &c[3], &c[4],
                                 &c[5], &rest);
    const bool isFinite = std::all_of(c.begin(), c.end(), [](double v) { return std::isfinite(v); });
    if (read != 6 || !isFinite)
        throw UsageError("--view must be overview, closeup, north or six numbers EX,EY,EZ,AX,AY,AZ: " + text);
    if (std::equal(c.begin(), c.begin() + 3, c.begin() + 3))
        throw UsageError("--view: eye and aim are the same point");
    return {"", c};
}

std::vector<ZMT::RASTER::GeoImageData> readImages(const SceneOptions & options,
                                                  const ZMT::RASTER::GeoRaster & terrain) {
    const auto & raster = *terrain.raster;
    const ZMT::RASTER::GeoExtent extent{raster.minX(), raster.minY(), raster.maxX(), raster.maxY()};
    std::vector<ZMT::RASTER::GeoImageData> images;
    for (const std::string & path : options.images) {
        NBX::Progress progress("reading " + path);
        auto image =
            ZMT::RASTER::ImageFile(path).warp(terrain.reference.wkt, extent, s_largestImage, &progress);
        if (!image) throw DataError("cancelled");
        progress.finish();
        images.push_back(std::move(*image));
    }
    return images;
}

NBX::SO<NBX::SceneThing> makeScene(const SceneOptions & options, const NBX::SO<GridData> & grid,
                                   const NBX::SO<ZMT::CORE::GeometryPatch> & root,
                                   const std::vector<ZMT::RASTER::GeoImageData> & images, bool plain) {
    NBX::SO<NBX::SceneThing> scene(new NBX::SceneThing);
    const NBX::Bounds interest = images.empty() ? NBX::Bounds() : sceneBox(images.back().extent);
    scene->append(CameraSetUp(*grid, options.exaggeration, interest).make(parseView(options.view)).get());
    scene->append(new NBX::Scaling(Point(1.0, options.exaggeration, 1.0)));
    if (options.wireframe) scene->append(new NBX::PolygonModeGL(s_glLine));
    scene->append(new ZMT::CORE::ModulateTerrainTexturingEffect(makeReliefTextures(*grid, plain).get()));
    if (!images.empty() && !plain) {
        NBX::SO<Textures> textures(new Textures);
        for (const auto & image : images)
            textures->append(makeImageTexture(image));
        scene->append(new ZMT::CORE::DecalTerrainTexturingEffect(textures.get()));
    }
    scene->append(new ZMT::CORE::Terrain(grid.get(), root.get()));
    return scene;
}
