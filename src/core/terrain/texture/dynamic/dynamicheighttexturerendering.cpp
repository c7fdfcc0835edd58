// Whether heights can be drawn from the graphics card, and textures of the heights of grids. The drawing
// itself is that of `HeightPassesGL`.

#include <zmt/core/terrain/texture/dynamic/dynamicheighttexturerendering.h>

#include <algorithm>
#include <cmath>

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/texture/dynamic/heightlevel.h>
#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include "heightpassesgl.h"
#include "renderrastertexturegl.h"
#include "trapezoidprogramsgl.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(DynamicHeightTextureRendering, NBX::Shape)

namespace {

using Point = NBX::Vector3Base<double>;

constexpr unsigned s_mostTexels = 4096; ///< of a side
constexpr float s_noHeight = -9999.0F;

/// Of vertices along a side, how many are taken, the first and the last one among them, evenly.
unsigned takenOf(unsigned vertices) {
    return std::min(vertices, s_mostTexels);
}

/// How many vertices one that is taken comes after the one before.
double stepOf(unsigned vertices) {
    return (vertices - 1.0) / (takenOf(vertices) - 1.0);
}

/// Sets `hasHoles` where a height is undefined.
NBX::SO<NBX::MemoryImage> heightImage(const GridData & grid, double level, bool & hasHoles) {
    NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(static_cast<int>(takenOf(grid.sizeX())),
                                                         static_cast<int>(takenOf(grid.sizeY())),
                                                         NBX::LS_Luminance, NBX::Image::Float));
    const auto vertex = [](int texel, unsigned vertices) {
        return static_cast<unsigned>(std::lround(texel * stepOf(vertices)));
    };
    for (int y = 0; y < image->height(); ++y) {
        auto * line = static_cast<float *>(static_cast<NBX::Image &>(*image).lineComponents(y));
        for (int x = 0; x < image->width(); ++x) {
            const double height = grid.vertex(vertex(x, grid.sizeX()), vertex(y, grid.sizeY())).y;
            const bool isHeight = std::isfinite(height) && !grid.isUndefinedHeightValue(height);
            if (!isHeight) hasHoles = true;
            line[x] = isHeight ? static_cast<float>(height - level) : s_noHeight;
        }
    }
    return image;
}

} // namespace

class DynamicHeightTextureRendering::Impl : public HeightPassesGL {
public:
    using HeightPassesGL::HeightPassesGL;
    bool isTold = false; ///< that nothing can be drawn
};

DynamicHeightTextureRendering::DynamicHeightTextureRendering(const NBX::Bounds & terrain)
    : DynamicHeightTextureRendering(terrain, drawingSize) {}

DynamicHeightTextureRendering::DynamicHeightTextureRendering(const NBX::Bounds & terrain, unsigned drawnSize)
    : Shape(true), terrain_(terrain), impl_(std::make_unique<Impl>(drawnSize)) {}

DynamicHeightTextureRendering::~DynamicHeightTextureRendering() = default;

NBX::SO<NBX::Shape>
DynamicHeightTextureRendering::CreateRasterHeightShape(const NBX::SO<TerrainTexture> & texture) {
    return new RenderRasterTexture(texture);
}

NBX::SO<TerrainTexture> DynamicHeightTextureRendering::CreateHeightTexture(const GridData * grid,
                                                                           double level) {
    NBX_CHECK(grid, L"no grid");
    if (!grid || grid->sizeX() < 2 || grid->sizeY() < 2) return nullptr;
    bool hasHoles = false;
    const NBX::SO<NBX::MemoryImage> image = heightImage(*grid, level, hasHoles);
    // Heights are not mixed with those that stand for none.
    const auto filter = hasHoles ? NBX::TextureGL::FM_Nearest : NBX::TextureGL::FM_Linear;
    const NBX::SO<NBX::TextureGL> texture(new NBX::ImageTexture2DGL(
        image, NBX::TextureGL::WM_ClampToEdge, NBX::TextureGL::WM_ClampToEdge, filter, filter));
    // A texel lies about its vertex.
    const Point cell(grid->scale().x * stepOf(grid->sizeX()), 0.0, grid->scale().z * stepOf(grid->sizeY()));
    const Point half = cell * 0.5;
    const Point last(cell.x * (image->width() - 1), 0.0, cell.z * (image->height() - 1));
    return new SimpleTerrainTexture(texture, NBX::Bounds(-half, last + half), NBX::Matrix4x4Base<double>());
}

NBX::SO<NBX::GL2::ProgramObject> DynamicHeightTextureRendering::shaderForTerrainHeightWithoutTexture() {
    return TrapezoidProgramsGL::height().program();
}

NBX::SO<NBX::GL2::ProgramObject> DynamicHeightTextureRendering::shaderForTerrainTextureWithTexture() {
    return TrapezoidProgramsGL::textured().program();
}

NBX::SO<NBX::GL2::ProgramObject> DynamicHeightTextureRendering::shaderForTerrainTextureWithoutTexture() {
    return TrapezoidProgramsGL::vectors().program();
}

NBX::SO<NBX::SceneThing> DynamicHeightTextureRendering::terrainHeightSceneGraph() const {
    return impl_->heightGraph();
}

NBX::SO<NBX::SceneThing> DynamicHeightTextureRendering::terrainTextureSceneGraph() const {
    return impl_->textureGraph();
}

double DynamicHeightTextureRendering::heightLevel() const {
    return HeightLevel(terrain_).level();
}

void DynamicHeightTextureRendering::setLightDirection(const Point & direction) {
    if (lightDirection_ == direction) return;
    lightDirection_ = direction;
    modified();
}

void DynamicHeightTextureRendering::showTestPattern(bool show) {
    if (showsPattern_ == show) return;
    showsPattern_ = show;
    modified();
}

const DynamicHeightTextureRendering::Statistics & DynamicHeightTextureRendering::lastStatistics() const {
    return impl_->statistics();
}

bool DynamicHeightTextureRendering::isPossible(const NBX::EngineGL & engine) const {
    const bool fits = HeightLevel(terrain_).fits(), isSupported = HeightPassesGL::isSupported(engine);
    if (fits && isSupported) return true;
    if (impl_->isTold) return false;
    impl_->isTold = true;
    if (!terrain_.isDefined())
        NBX_FAILURE(L"heights cannot be drawn without the box of the terrain");
    else if (!fits)
        NBX_FAILURE(L"heights from " << terrain_.getLLF().y << L" to " << terrain_.getURB().y
                                     << L" are too far apart to be drawn from the graphics card, which takes "
                                     << HeightLevel::mostRange << L"; drape by a VectorTexture there");
    else
        NBX_FAILURE(L"the graphics driver has no targets of floats; drape by a VectorTexture");
    return false;
}

bool DynamicHeightTextureRendering::render(const NBX::SO<NBX::EngineGL> & engine) const {
    NBX_CHECK(engine, L"no engine");
    if (!engine || !isPossible(*engine)) return false;
    NBX_CHECK(engine->viewport(), L"no viewport");
    if (!engine->viewport()) return false;
    if (!TerrainPainterGLSettings::renderingEnabled()) return true;
    if (impl_->render(*engine, {terrain_, heightLevel(), lightDirection_, showsPattern_})) return true;
    if (!impl_->isTold)
        NBX_FAILURE(L"the graphics driver cannot draw into the targets of floats; drape by a VectorTexture");
    impl_->isTold = true;
    return false;
}

} // namespace ZMT::CORE
