// A request climbs from the patch to the first ancestor that is fine enough or has its texture; what is
// missing on the way waits in the queue of the class, at most three levels of it, and the level above is
// drawn at once. Without caching a view in motion has one texture instead, of all that the last picture
// showed.

#include <zmt/core/terrain/texture/vector/vectortexture.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/scene/view/viewinfo.h>

#include "core/terrain/texture/emptytexture.h"
#include "core/terrain/texture/texturemanagerholder.h"
#include "scenecontent.h"
#include "vectortextureimagegl.h"
#include "vectortexturerenderer.h"
#include "vectortexturetables.h"

namespace ZMT::CORE {

NBX_STORED_CLASS_IMPL(VectorTexture, TerrainTexture)
NBX_CLASS_IMPL(VectorTexture::Patch, NBX::SharedObj)
NBX_CLASS_IMPL(VectorTexture::Mapper, NBX::SharedObj)

namespace {

using Point = NBX::Vector3Base<double>;
using GeometryPatchSO = NBX::SO<const GeometryPatch>;

constexpr double s_unbounded = 1e42;
/// Levels that may wait at once; the one above them is drawn in the frame.
constexpr unsigned s_mostQueued = 3;
constexpr unsigned s_leastSize = 2;

// What a stream may set for the whole class.
constexpr unsigned s_mostStoredSize = 4096;
constexpr unsigned s_mostStoredPatches = 4096;

VectorTextureTables & tables() {
    return VectorTextureTables::instance();
}

NBX::Bounds unboundedInHeight(const NBX::Bounds & box) {
    if (!box.isDefined()) return box;
    const Point & low = box.getLLF();
    const Point & high = box.getURB();
    return {Point(low.x, -s_unbounded, low.z), Point(high.x, s_unbounded, high.z)};
}

bool hasArea(const NBX::Bounds & box) {
    return box.isDefined() && box.diagonal().x > 0.0 && box.diagonal().z > 0.0;
}

} // namespace

/// What all steps of one request need.
struct VectorTexture::Request {
    NBX::EngineGL * engine;
    const NBX::ViewInfo & viewInfo;
    const Point & eye;
    double textureError;
    bool asynchronous;

    /// Side length in pixels, on the screen, of a texel of the texture of `box`.
    static double pixelSize(const NBX::Bounds & box, const NBX::ViewInfo & viewInfo, const Point & eye) {
        const double half = 0.5 / (tables().canvasSize - 1);
        const Point a(box.diagonal().x * half, 0.0, 0.0), b(0.0, 0.0, box.diagonal().z * half);
        return std::sqrt(
            std::max(viewInfo.screenDistance2(eye - a, eye + a), viewInfo.screenDistance2(eye - b, eye + b)));
    }
    double pixelSize(const NBX::Bounds & box) const { return pixelSize(box, viewInfo, eye); }
    double pixelSize(const Patch & patch) const { return pixelSize(patch.boundingBox()); }
    bool drawsAtOnce(const Patch * above, unsigned queued) const {
        return !above || textureError <= 0.0 || !asynchronous || queued >= s_mostQueued;
    }
};

VectorTexture::Patch::Patch(const VectorTexture * textureOwner, const GeometryPatch * patch,
                            unsigned patchDepth)
    : owner(textureOwner), geometryPatch(patch), depth(patchDepth) {}

VectorTexture::Patch::~Patch() {
    tables().forget(this);
}

NBX::Bounds VectorTexture::Patch::boundingBox() const {
    const GeometryPatchSO patch = geometryPatch.lock();
    return patch ? patch->boundingBox() : NBX::Bounds();
}

VectorTexture::Mapper::Mapper() : patches(new Patches(texturePatchBuckets)), empty(new GeometryPatches) {}

VectorTexture::Mapper::~Mapper() = default;

void VectorTexture::Mapper::clear() {
    patches->clear();
    empty->clear();
}

void VectorTexture::Mapper::dropUnused() {
    // The last one takes the place of one that is removed. What goes may have held others.
    for (bool hasDropped = true; hasDropped;) {
        hasDropped = false;
        for (unsigned i = patches->size(); i > 0; --i) {
            const GeometryPatchSO patch = patches->key(i - 1);
            if (patch->references() > 2) continue;
            patches->remove(patch);
            hasDropped = true;
        }
        for (unsigned i = empty->size(); i > 0; --i) {
            const GeometryPatchSO patch = empty->element(i - 1);
            if (patch->references() > 2) continue;
            empty->remove(patch);
            hasDropped = true;
        }
    }
}

VectorTexture::VectorTexture()
    : TerrainTexture(NBX::TextureGL::FM_LinearMipmapLinear, NBX::TextureGL::FM_Linear), mapper_(new Mapper) {
    tables().beginRenderOrder();
    tables().enter(this, mapper_.get());
}

VectorTexture::VectorTexture(NBX::SceneNode * graph, const NBX::Bounds & bbox, bool, bool, bool caching,
                             bool culling, unsigned maxDepth, unsigned internalFormat)
    : VectorTexture() {
    graph_ = graph;
    bbox_ = unboundedInHeight(bbox);
    caching_ = caching;
    culling_ = culling;
    maxDepth_ = maxDepth;
    NBX_CHECK(graph_, L"no scene graph");
    NBX_CHECK(bbox.isDefined(), L"undefined bounding box");
    if (internalFormat != 0) VectorTexture::setInternalFormat(internalFormat);
}

VectorTexture::~VectorTexture() {
    VectorTexture::clearCache();
    mapper_->clear();
    tables().leave(this);
}

void VectorTexture::setBoundingBox(const NBX::Bounds & bbox) {
    NBX_CHECK(bbox.isDefined(), L"bbox not defined");
    if (!bbox.isDefined()) return;
    bbox_ = unboundedInHeight(bbox);
    modified();
}

void VectorTexture::forgetPatches() {
    mapper_->clear();
    modified();
}

void VectorTexture::setGraph(NBX::SceneNode * graph) {
    graph_ = graph;
    forgetPatches();
}

void VectorTexture::clearCache() {
    for (unsigned i = 0; i < mapper_->patches->size(); ++i)
        tables().dropTexture(mapper_->patches->value(i).get());
    // Something may show there now.
    mapper_->empty->clear();
    modified();
}

void VectorTexture::setCaching(bool caching) {
    caching_ = caching;
    modified();
}

void VectorTexture::setCulling(bool culling) {
    culling_ = culling;
    modified();
}

void VectorTexture::setMaxDepth(unsigned maxDepth) {
    maxDepth_ = maxDepth;
    forgetPatches();
}

void VectorTexture::setInternalFormat(unsigned internalFormat) {
    const bool isFormat = VectorTextureImageGL::isFormat(internalFormat);
    NBX_CHECK(isFormat, L"textures cannot have the internal format " << internalFormat);
    if (!isFormat || tables().textureFormat == internalFormat) return;
    tables().textureFormat = internalFormat;
    modified();
}

unsigned VectorTexture::getInternalFormat() const {
    return tables().textureFormat;
}

void VectorTexture::setBufferSize(unsigned size) {
    NBX_CHECK(size >= s_leastSize, L"a texture of " << size << L" texels cannot be drawn");
    if (size < s_leastSize) return;
    tables().canvasSize = size;
    tables().dropAllTextures();
    tables().clearQueue();
    forgetPatches();
}

unsigned VectorTexture::getBufferSize() const {
    return tables().canvasSize;
}

void VectorTexture::setMaxTexturePatches(unsigned count) {
    tables().maxPatches = std::max(count, 1U);
}

unsigned VectorTexture::getMaxTexturePatches() {
    return tables().maxPatches;
}

bool VectorTexture::needsMoreTexturePatches() {
    return tables().isFull();
}

void VectorTexture::setSamples(unsigned count) {
    tables().samples = std::max(count, 1U);
}

unsigned VectorTexture::getSamples() {
    return tables().samples;
}

unsigned long VectorTexture::renderCount() {
    return VectorTextureRenderer::count();
}

void VectorTexture::releaseSharedObjects() {
    tables().dropAllTextures();
    VectorTextureRenderer::releaseCanvas();
}

void VectorTexture::render(NBX::GLCanvas * canvas, const NBX::Bounds &) const {
    if (graph_) canvas->append(graph_.get());
}

bool VectorTexture::refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned, unsigned,
                           const Point & eye, double textureError, bool) const {
    NBX_CHECK(patch, L"no geometry-patch");
    if (!patch) return false;
    const NBX::Bounds box = patch->boundingBox();
    // Where nothing is drawn, nothing becomes sharper.
    if (!bbox_.intersects(box)) return false;
    return Request::pixelSize(box, *viewInfo, eye) >= textureError;
}

const NBX::SO<NBX::TextureGL> & VectorTexture::emptyTexture() const {
    if (!emptyTexture_) emptyTexture_ = EmptyTexture::newTexture();
    return emptyTexture_;
}

NBX::SO<NBX::TextureGL> VectorTexture::requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                                   const NBX::ViewInfo * viewInfo, unsigned, unsigned,
                                                   double priority, const Point & eye, double textureError,
                                                   bool inMotion, bool asynchronous,
                                                   bool & incomplete) const {
    NBX_CHECK(patch, L"no geometry-patch");
    NBX_CHECK(engine, L"no engine");
    // A scene with a terrain that shows the scene would have no end.
    if (!patch || !engine || VectorTextureRenderer::isRendering()) return emptyTexture();
    const NBX::Bounds box = patch->boundingBox();
    if (!hasArea(box) || !bbox_.intersects(box)) return emptyTexture();

    if (!caching_) {
        if (tables().activate(this)) {
            const_cast<VectorTexture *>(this)->modified();
            const NBX::SO<NBX::Texture2DGL> before = std::exchange(fastTexture_, nullptr);
            if (before) tables().giveBack(before);
        }
        if (inMotion) return requestFast(box, engine);
    }
    const Request request{engine, *viewInfo, eye, textureError, asynchronous};
    const GeometryPatchSO wanted = serving(*patch, request);
    if (culling_ && !mapper_->patches->contains(wanted) && showsNothing(wanted, engine))
        return emptyTexture();
    map(wanted);
    return find(*wanted, request, priority, incomplete);
}

/// Culled as such, since what is measured in texels reaches farther in the texture of a patch above.
GeometryPatchSO VectorTexture::serving(const GeometryPatch & patch, const Request & request) const {
    unsigned depth = 0;
    for (GeometryPatchSO above = patch.parent(); above; above = above->parent())
        ++depth;
    GeometryPatchSO served(&patch);
    for (; const GeometryPatchSO above = served->parent(); --depth) {
        const bool isFineEnough = request.pixelSize(above->boundingBox()) <= request.textureError;
        if (depth <= maxDepth_ && !isFineEnough) break;
        served = above;
    }
    return served;
}

NBX::SO<NBX::TextureGL> VectorTexture::requestFast(const NBX::Bounds & box, NBX::EngineGL * engine) const {
    if (!fastTexture_) {
        // Of this object alone: the next one may lie elsewhere.
        const NBX::Bounds & seen = tables().motionBox;
        fastBox_ = unboundedInHeight(seen.isDefined() ? seen : bbox_);
        fastTexture_ = VectorTextureRenderer(engine).renderFast(*this, fastBox_);
    }
    // What the last picture did not show would have streaks, of the texels at the border.
    const bool isCovered = fastTexture_ && fastBox_.intersects(box);
    return isCovered ? NBX::SO<NBX::TextureGL>(fastTexture_) : emptyTexture();
}

bool VectorTexture::showsNothing(const GeometryPatchSO & patch, NBX::EngineGL * engine) const {
    for (GeometryPatchSO above = patch; above; above = above->parent())
        if (mapper_->empty->contains(above)) return true;
    // Lines are wider than their boxes: what its margin shows belongs to a texture.
    const NBX::Bounds area = unboundedInHeight(VectorTextureRenderer::widened(patch->boundingBox()));
    if (meets(area, engine)) return false;
    mapper_->empty->insert(patch);
    return true;
}

bool VectorTexture::meets(const NBX::Bounds & area, NBX::EngineGL * engine) const {
    return SceneContent::meets(graph_.get(), area, engine);
}

void VectorTexture::map(const GeometryPatchSO & patch) const {
    std::vector<GeometryPatchSO> unknown;
    GeometryPatchSO known = patch;
    for (; known && !mapper_->patches->contains(known); known = known->parent())
        unknown.push_back(known);
    NBX::SO<Patch> above = known ? mapper_->patches->get(known) : nullptr;
    for (; !unknown.empty(); unknown.pop_back()) {
        above = new Patch(this, unknown.back().get(), above ? above->depth + 1 : 0);
        mapper_->patches->insert(unknown.back(), above);
    }
}

NBX::SO<NBX::TextureGL> VectorTexture::find(const GeometryPatch & patch, const Request & request,
                                            double priority, bool & incomplete) const {
    const auto above = [this](const Patch & piece) -> NBX::SO<Patch> {
        const GeometryPatchSO own = piece.geometryPatch.lock();
        const GeometryPatchSO parent = own ? own->parent() : nullptr;
        const NBX::SO<Patch> * known = parent ? mapper_->patches->find(parent) : nullptr;
        return known ? *known : nullptr;
    };
    NBX::SO<Patch> piece = mapper_->patches->get(GeometryPatchSO(&patch)), parent;
    unsigned queued = 0;
    for (; piece; piece = parent) {
        parent = above(*piece);
        if (const auto texture = tables().use(piece.get())) return texture;
        if (request.drawsAtOnce(parent.get(), queued)) {
            VectorTextureRenderer(request.engine).render(*piece);
            const auto texture = tables().use(piece.get());
            if (!texture) NBX_REPORT(0, L"LRU()->contains(texPatch)", L"internal error");
            return texture ? NBX::SO<NBX::TextureGL>(texture) : emptyTexture();
        }
        tables().enqueue(piece.get(), priority * request.pixelSize(*piece));
        priority *= 0.5;
        // Where there is no room nothing comes, however often the picture is drawn.
        if (!tables().isFull()) incomplete = true;
        ++queued;
    }
    NBX_REPORT(0, L"false", L"internal error");
    return emptyTexture();
}

void VectorTexture::beginFrame(const TerrainPainterFrameManager::Info & info) {
    tables().beginFrame(info);
}

void VectorTexture::endFrame(const TerrainPainterFrameManager::Info & info) {
    if (!info.inMotion) VectorTextureRenderer(dynamic_cast<NBX::EngineGL *>(info.engine)).renderQueue();
    tables().endFrame(info);
}

void VectorTexture::acceptChildren(std::vector<NBX::Visitable *> & children) const {
    TerrainTexture::acceptChildren(children);
    children.push_back(graph_.get());
}

void VectorTexture::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexture>(m, this);
    m.attribute("graph", graph_);
    m.attribute("bbox", bbox_);
    m.attribute("caching", caching_);
    m.attribute("culling", culling_);
    m.attribute("maxDepth", maxDepth_);
    unsigned format = tables().textureFormat, size = tables().canvasSize, patches = tables().maxPatches;
    m.attribute("pBufferTextureFormat", format);
    m.attribute("pBufferCanvasSize", size);
    m.attribute("maxTexturePatches", patches);
    if (!m.isReading()) return;
    bbox_ = unboundedInHeight(bbox_);
    if (VectorTextureImageGL::isFormat(format)) tables().textureFormat = format;
    if (patches >= 1 && patches <= s_mostStoredPatches) tables().maxPatches = patches;
    if (size >= s_leastSize && size <= s_mostStoredSize && size != tables().canvasSize)
        VectorTexture::setBufferSize(size);
    forgetPatches();
}

namespace {

using FrameCallback = NBX::FunctionCallback1<const TerrainPainterFrameManager::Info &>;

[[maybe_unused]] const bool isInFrames =
    TerrainPainterFrameManager::RegisterBeginFrameCallback(new FrameCallback(VectorTexture::beginFrame)) &&
    TerrainPainterFrameManager::RegisterEndFrameCallback(new FrameCallback(VectorTexture::endFrame));

} // namespace

} // namespace ZMT::CORE
