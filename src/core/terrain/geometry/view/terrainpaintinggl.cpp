#include "terrainpaintinggl.h"

#include <nbx/engine/engine.h>
#include <nbx/engine/navigation.h>
#include <nbx/engine/pathnavigation.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/viewport.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>

namespace ZMT::CORE {

namespace {

constexpr double s_redisplayDelay = 0.05;
constexpr int s_asynchronousMode = 1;

/// The canvas of this frame, unless its picture must be complete at once.
NBX::GLCanvas * refinableCanvas(const NBX::Engine & engine) {
    const auto * data =
        dynamic_cast<NBX::ContextData<NBX::Canvas *> *>(engine.getAttribute(NBX::Canvas::ClassNameNBX()));
    auto * canvas = data ? dynamic_cast<NBX::GLCanvas *>(data->getValue()) : nullptr;
    return dynamic_cast<NBX::PBufferCanvasGL *>(canvas) ? nullptr : canvas;
}

/// Whether the view is being navigated. A flight that is being recorded must not lose detail.
bool isNavigated(const NBX::Engine & engine) {
    if (NBX::soCast<NBX::PathNavigation>(NBX::Navigation::activeNavigation())) return false;
    const auto * flag = dynamic_cast<NBX::ContextData<bool> *>(engine.getAttribute("MotionFlag"));
    return flag && flag->getValue();
}

NBX::Bounds boxOf(const TerrainPaintingGL::TexturedGeometries & geometries) {
    NBX::Bounds box;
    for (const auto & geometry : geometries)
        box += geometry->boundingBox();
    return box;
}

} // namespace

TerrainPaintingGL::TerrainPaintingGL(NBX::Engine * engine)
    : engine_(engine), engineGL_(dynamic_cast<NBX::EngineGL *>(engine)), canvas_(refinableCanvas(*engine)),
      textureError_(TerrainPainterGLSettings::getTextureError()),
      isInMotion_(canvas_ && isNavigated(*engine)),
      isAsynchronous_(canvas_ && canvas_->getRenderingMode() == s_asynchronousMode &&
                      !TerrainPainterGLSettings::snapshotModeEnabled()),
      viewInfo_(engine->viewInfo()), nearPoint_(nearPoint(*viewInfo_)) {
    const NBX::Area area = engine->viewport()->getArea();
    viewportWidth_ = area.getWidth();
    viewportHeight_ = area.getHeight();
    readEffects();
    texturedGeometries_ = texturedGeometriesOf(*engine);
    texturedBox_ = boxOf(texturedGeometries_);
}

TerrainPaintingGL::Point TerrainPaintingGL::nearPoint(const NBX::ViewInfo & viewInfo) {
    return viewInfo.position() + viewInfo.direction() * viewInfo.nearDistance();
}

void TerrainPaintingGL::readEffects() {
    const auto * stack = engine_->monoTable(TerrainTexturingEffect::ClassNameNBX());
    for (unsigned i = stack ? stack->size() : 0; i > 0; --i)
        if (auto effect = NBX::soCast<TerrainTexturingEffect>(stack->get(i - 1))) effects_.push_back(effect);
}

TerrainPaintingGL::TexturedGeometries TerrainPaintingGL::texturedGeometriesOf(const NBX::Engine & engine) {
    const NBX::ID & name = TerrainTexturedGeometry::ClassNameNBX();
    TexturedGeometries geometries;
    for (unsigned i = 0; i < engine.polyAttributeCount(name, NBX::Engine::PS_All); ++i)
        if (auto * geometry =
                dynamic_cast<TerrainTexturedGeometry *>(engine.polyAttribute(name, i, NBX::Engine::PS_All)))
            geometries.emplace_back(geometry);
    return geometries;
}

NBX::Bounds TerrainPaintingGL::boxOfTexturedGeometries(const NBX::Engine & engine) {
    return boxOf(texturedGeometriesOf(engine));
}

bool TerrainPaintingGL::isIdle() const {
    return !TerrainPainterGLSettings::renderingEnabled() && texturedGeometries_.empty();
}

bool TerrainPaintingGL::wantsDetail(const GeometryPatch & patch, const Point & eye) const {
    for (const auto & effect : effects_) {
        if (effect->refine(&patch, viewInfo_.get(), viewportWidth_, viewportHeight_, eye, textureError_,
                           isInMotion_))
            return true;
        if (ignoresPrevious(*effect, patch, eye)) return false;
    }
    return false;
}

bool TerrainPaintingGL::ignoresPrevious(const TerrainTexturingEffect & effect, const GeometryPatch & patch,
                                        const Point & eye) const {
    return effect.ignorePreviousEffects(&patch, viewInfo_.get(), viewportWidth_, viewportHeight_, eye,
                                        textureError_, isInMotion_);
}

void TerrainPaintingGL::appendEffects(NBX::SceneThing & thing, const GeometryPatch & patch, double priority,
                                      const Point & eye) {
    for (const auto & effect : effects_) {
        const auto attribute =
            effect->request(&patch, engineGL_, viewInfo_.get(), viewportWidth_, viewportHeight_, priority,
                            eye, textureError_, isInMotion_, isAsynchronous_, isIncomplete_);
        if (attribute) thing.append(attribute.get());
        if (ignoresPrevious(*effect, patch, eye)) break;
    }
}

bool TerrainPaintingGL::appendTexturedGeometries(NBX::SceneThing & thing, const NBX::Bounds & box) const {
    bool hasAny = false;
    for (const auto & geometry : texturedGeometries_)
        if (const auto part = geometry->geometry(box)) {
            thing.append(part.get());
            hasAny = true;
        }
    return hasAny;
}

void TerrainPaintingGL::paintFrame(const std::function<void()> & paint) const {
    TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() = NBX::Bounds();
    const TerrainPainterFrameManager::Info info{engine_, isInMotion_};
    TerrainPainterFrameManager::CallBeginFrameCallbacks(info);
    try {
        paint();
    } catch (...) {
        // Who has begun the frame ends it: caches are cut to their budgets there.
        TerrainPainterFrameManager::CallEndFrameCallbacks(info);
        throw;
    }
    TerrainPainterFrameManager::CallEndFrameCallbacks(info);
}

void TerrainPaintingGL::postForRedisplay() const {
    if (canvas_ && (isInMotion_ || isIncomplete_)) canvas_->postForRedisplay(s_redisplayDelay);
}

} // namespace ZMT::CORE
