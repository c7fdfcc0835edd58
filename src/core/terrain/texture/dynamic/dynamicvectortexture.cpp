// One texture is drawn for a picture, at the first request of it. The painting of a terrain has a number,
// under which all requests but the first end at once; a picture is known by the attribute that its canvas
// pushes, so that a second terrain draws only where the camera sees other ground of it.
//
// The heights that count are those of the whole terrain, and where these reach above the eye its footprint
// begins at the eye: rows of texels that are even in the inverse of the distance would all lie within the
// first steps. The boxes of patches near the eye say how far there is nothing to be seen. And the far plane
// often lies far behind the terrain, so the footprint ends where that does.
//
// Nothing is drawn with heights here, so there is no float target: that is one of
// `DynamicHeightTextureRendering`.

#include <zmt/core/terrain/texture/dynamic/dynamicvectortexture.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include <nbx/gl/context/glcanvas.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>

#include "core/terrain/geometry/view/terrainpaintinggl.h"
#include "core/terrain/texture/vector/vectortexturecanvasgl.h"
#include "dynamicvectorhud.h"
#include "dynamicvectortargetgl.h"
#include "nearestground.h"
#include "renderrastertexturegl.h"
#include "trapezoidfit.h"
#include "trapezoidpass.h"

namespace ZMT::CORE {

NBX_STORED_CLASS_IMPL(DynamicVectorTexture, TerrainTexture)

namespace {

using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

constexpr double s_unbounded = 1e42;
constexpr unsigned s_leastSize = 2, s_largestSize = 8192;

/// Of the painting of a terrain that goes on.
unsigned long s_frame = 1;

/// Below all vectors; keeps the patches for which its texture is asked, since caches know them by identity.
/// Never destroyed itself: the class-wide objects of textures may have gone by then.
NBX::SO<RenderRasterTexture> & raster() {
    static auto & instance = *new NBX::SO<RenderRasterTexture>;
    return instance;
}

NBX::SO<const GeometryPatch> topOf(const GeometryPatch & patch) {
    NBX::SO<const GeometryPatch> top(&patch);
    while (const NBX::SO<const GeometryPatch> above = top->parent())
        top = above;
    return top;
}

/// Draped triangles rise above their terrain, and show its textures as well.
NBX::Bounds withDraped(const NBX::Bounds & terrain, const NBX::Bounds & draped) {
    if (!terrain.isDefined() || !draped.isDefined()) return terrain;
    const Point low = terrain.getLLF(), high = terrain.getURB();
    const NBX::Bounds column({low.x, std::min(low.y, draped.getLLF().y), low.z},
                             {high.x, std::max(high.y, draped.getURB().y), high.z});
    return column.intersects(draped) ? column : terrain;
}

} // namespace

class DynamicVectorTexture::Target : public DynamicVectorTargetGL {
    using DynamicVectorTargetGL::DynamicVectorTargetGL;
};

/// What is asked for.
struct DynamicVectorTexture::Request {
    NBX::EngineGL * engine;
    const NBX::ViewInfo * viewInfo;
    unsigned viewportWidth, viewportHeight;
    double textureError;
    bool inMotion, asynchronous;

    std::optional<TrapezoidFit::Trapezoid> trapezoid(const NBX::Bounds & terrains,
                                                     const NBX::SO<const GeometryPatch> & top,
                                                     const NBX::Bounds & draped) const {
        const double nearest =
            std::min(NearestGround::distance(top, *viewInfo), std::sqrt(viewInfo->distance2(draped)));
        return TrapezoidFit::trapezoid((viewInfo->projection() * viewInfo->modelView()).inverse(),
                                       terrains.getLLF().y, terrains.getURB().y, nearest, terrains);
    }
};

DynamicVectorTexture::DynamicVectorTexture()
    : TerrainTexture(NBX::TextureGL::FM_LinearMipmapLinear, NBX::TextureGL::FM_Linear) {}

DynamicVectorTexture::DynamicVectorTexture(const NBX::SO<NBX::SceneNode> & scene) : DynamicVectorTexture() {
    scene_ = scene;
}

DynamicVectorTexture::~DynamicVectorTexture() = default;

bool DynamicVectorTexture::refine(const GeometryPatch *, const NBX::ViewInfo *, unsigned, unsigned,
                                  const Point &, double, bool) const {
    return false;
}

NBX::Bounds DynamicVectorTexture::boundingBox() const {
    const NBX::Bounds box = scene_ ? scene_->boundingBox(nullptr) : NBX::Bounds();
    if (!box.isDefined()) return box;
    const Point low = box.getLLF(), high = box.getURB();
    return {Point(low.x, -s_unbounded, low.z), Point(high.x, s_unbounded, high.z)};
}

void DynamicVectorTexture::setScene(const NBX::SO<NBX::SceneNode> & scene) {
    if (scene_ == scene) return;
    scene_ = scene;
    forgetPicture();
}

void DynamicVectorTexture::setTextureSize(unsigned size) {
    const bool isPossible = size >= s_leastSize && size <= s_largestSize;
    NBX_CHECK(isPossible, L"a texture of " << size << L" texels cannot be drawn");
    if (!isPossible || size == size_) return;
    size_ = size;
    target_ = nullptr;
    forgetPicture();
}

void DynamicVectorTexture::forgetPicture() {
    frame_ = 0;
    picture_ = nullptr;
    modified();
}

bool DynamicVectorTexture::isOfThisPicture(const NBX::EngineGL * engine) const {
    const NBX::SO<const NBX::MonoAttribute> picture = engine->getAttribute(NBX::Canvas::ClassNameNBX());
    return picture && picture_.lock() == picture;
}

NBX::SO<NBX::TextureGL> DynamicVectorTexture::requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                                          const NBX::ViewInfo * viewInfo, unsigned width,
                                                          unsigned height, double, const Point &,
                                                          double textureError, bool inMotion,
                                                          bool asynchronous, bool & incomplete) const {
    NBX_CHECK(patch, L"no geometry-patch");
    NBX_CHECK(engine, L"no engine");
    NBX_CHECK(viewInfo, L"no view-info");
    // A scene with a terrain that shows the scene would have no end.
    if (!patch || !engine || !viewInfo || VectorTextureScopeGL::isActive()) return nullptr;
    if (!scene_ && !raster()) return nullptr;
    const bool isDrawn = frame_ == s_frame && engine_.lock() == engine;
    if (!isDrawn && !drawFor({engine, viewInfo, width, height, textureError, inMotion, asynchronous}, *patch))
        return nullptr;
    if (isIncomplete_) incomplete = true;
    return target_ ? target_->texture() : nullptr;
}

bool DynamicVectorTexture::drawFor(const Request & request, const GeometryPatch & patch) const {
    const NBX::SO<const GeometryPatch> top = topOf(patch);
    const NBX::Bounds draped = TerrainPaintingGL::boxOfTexturedGeometries(*request.engine);
    const NBX::Bounds terrain = withDraped(top->boundingBox(), draped);
    if (!terrain.isDefined()) return false;
    const bool isFurther = isOfThisPicture(request.engine);
    if (!isFurther) terrains_ = NBX::Bounds();
    terrains_ += terrain;
    const auto trapezoid = request.trapezoid(terrains_, top, draped);
    Matrix matrix;
    if (trapezoid) TrapezoidFit::fit(*trapezoid, matrix);
    frame_ = s_frame;
    if (isFurther && matrix == textureMatrix_) return true;
    textureMatrix_ = matrix;
    engine_ = request.engine;
    picture_ = NBX::SO<const NBX::MonoAttribute>(request.engine->getAttribute(NBX::Canvas::ClassNameNBX()));
    DynamicVectorHud::note(request.engine, trapezoid);
    draw(request);
    return true;
}

void DynamicVectorTexture::draw(const Request & request) const {
    if (!target_) target_ = std::make_unique<Target>(size_, request.engine->glCanvas());
    TrapezoidPass pass;
    pass.trapMat = TrapezoidFit::squareToClip() * textureMatrix_;
    pass.view = request.viewInfo;
    pass.viewportWidth = request.viewportWidth;
    pass.viewportHeight = request.viewportHeight;
    pass.engine = request.engine;
    pass.terrain = terrains_;
    pass.textureError = request.textureError;
    pass.inMotion = request.inMotion;
    pass.asynchronous = request.asynchronous;
    const NBX::SO<NBX::Shape> below = raster() ? raster()->asked(pass) : nullptr;
    if (target_->draw(request.engine, textureMatrix_, below.get(), scene_.get())) ++renders_;
    isIncomplete_ = pass.isIncomplete;
}

DynamicVectorTexture::Matrix
DynamicVectorTexture::calculateTrapezoidProjection(const NBX::SO<NBX::EngineGL> & engine, double minHeight,
                                                   double maxHeight) {
    NBX_CHECK(engine, L"no engine");
    Matrix result;
    if (engine)
        TrapezoidFit::fit((engine->projectionMatrix() * engine->modelViewMatrix()).inverse(), minHeight,
                          maxHeight, result);
    return result;
}

void DynamicVectorTexture::renderTerrainTexture(const NBX::SO<NBX::EngineGL> & engine,
                                                const NBX::SO<TerrainTexture> & texture) {
    NBX_CHECK(engine && engine->getCanvas(), L"no engine with a canvas");
    NBX_CHECK(texture, L"no texture");
    if (!engine || !engine->getCanvas() || !texture) return;
    NBX::SO<NBX::SceneThing> node(new NBX::SceneThing);
    node->append(new RenderRasterTexture(texture));
    engine->getCanvas()->append(node.get());
}

void DynamicVectorTexture::setRasterTexture(TerrainTexture * texture) {
    if (rasterTexture() == texture) return;
    raster() = texture ? new RenderRasterTexture(NBX::SO<TerrainTexture>(texture)) : nullptr;
    ++s_frame;
}

NBX::SO<TerrainTexture> DynamicVectorTexture::rasterTexture() {
    return raster() ? raster()->texture() : nullptr;
}

void DynamicVectorTexture::renderInHUD(const NBX::SO<NBX::EngineGL> & engine, bool enabled) {
    DynamicVectorHud::enable(engine.get(), enabled);
}

void DynamicVectorTexture::beginFrame(const TerrainPainterFrameManager::Info &) {
    ++s_frame;
}

void DynamicVectorTexture::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    TerrainTexture::acceptChildren(children);
    children.push_back(scene_.get());
}

void DynamicVectorTexture::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexture>(m, this);
    NBX::attributeWithDefault(m, "scene", scene_, NBX::SO<NBX::SceneNode>());
    if (m.isReading()) forgetPicture();
}

namespace {

using FrameCallback = NBX::FunctionCallback1<const TerrainPainterFrameManager::Info &>;

[[maybe_unused]] const bool isInFrames = TerrainPainterFrameManager::RegisterBeginFrameCallback(
    new FrameCallback(DynamicVectorTexture::beginFrame));

} // namespace

} // namespace ZMT::CORE
