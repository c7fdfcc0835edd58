// Depths are clamped in place of being cut at the near and the far plane, so that high and exaggerated ground
// keeps what stands on it. Of the scaling of a terrain the canvas takes the heights alone: patches, and with
// them the boxes of textures, are those of the terrain before it is scaled.

#include "vectortexturecanvasgl.h"

#include <GL/glew.h>

#include <nbx/engine/clock.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/attribute/contextdata.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/frame/terrainwatcher.h>

namespace ZMT::CORE {

namespace {

constexpr unsigned s_properties = NBX::GLCanvas::COLOR_BUFFER | NBX::GLCanvas::DEPTH_BUFFER |
                                  NBX::GLCanvas::ALPHA_BUFFER | NBX::GLCanvas::STENCIL_BUFFER;

bool s_pixelBuffers = true;
unsigned s_scopes = 0;

/// Never destroyed itself: textures may be drawn while libraries unload.
NBX::SO<NBX::GLCanvas> & currentCanvas() {
    static auto & canvas = *new NBX::SO<NBX::GLCanvas>;
    return canvas;
}

void prepare(NBX::GLCanvas & canvas) {
    // Nobody but a terrain draws it.
    NBX::Clock::systemClock()->removeManager(&canvas);
    if (!canvas.makeContextCurrent()) return;
    if (GLEW_ARB_depth_clamp) glEnable(GL_DEPTH_CLAMP);
    canvas.releaseContext();
    canvas.redisplay();
}

/// The height factors of all scalings in force; null without one.
NBX::SO<TerrainScaling> heightScaling(const NBX::Engine & engine) {
    if (!engine.getAttribute(TerrainScaling::ClassNameNBX())) return nullptr;
    const auto * stack = engine.monoTable(TerrainScaling::ClassNameNBX());
    double factor = 1.0;
    for (unsigned i = 0; stack && i < stack->size(); ++i)
        if (const auto scaling = NBX::soCast<TerrainScaling>(stack->get(i)))
            factor *= scaling->getScaling().y;
    return new TerrainScaling({1.0, factor, 1.0});
}

} // namespace

NBX::SO<NBX::GLCanvas> VectorTextureCanvasGL::newCanvas(unsigned size, NBX::GLCanvas * shared) {
    NBX::SO<NBX::GLCanvas> canvas;
    if (s_pixelBuffers && NBX::PBufferCanvasGL::isSupported()) {
        canvas = new NBX::PBufferCanvasGL(size, size, s_properties, shared, false, GL_RGBA, GL_TEXTURE_2D);
    } else {
        NBX_FAILURE(L"no support for pbuffer canvas available, using the slower offscreen canvas instead");
        canvas = new NBX::OffscreenCanvasGL(size, size, nullptr);
    }
    prepare(*canvas);
    return canvas;
}

NBX::SO<NBX::GLCanvas> VectorTextureCanvasGL::canvas(unsigned size, NBX::GLCanvas * shared) {
    NBX::SO<NBX::GLCanvas> & canvas = currentCanvas();
    if (canvas && canvas->getWidth() == size && canvas->getHeight() == size) return canvas;
    release();
    canvas = newCanvas(size, shared);
    return canvas;
}

void VectorTextureCanvasGL::release() {
    NBX::SO<NBX::GLCanvas> & canvas = currentCanvas();
    if (canvas) NBX::Clock::systemClock()->removeManager(canvas.get());
    canvas = nullptr;
}

void VectorTextureCanvasGL::allowPixelBuffers(bool allow) {
    if (allow != s_pixelBuffers) release();
    s_pixelBuffers = allow;
}

/// Keeps the view that it has while the scene is seen by another one.
class VectorTextureScopeGL::FrozenWatcher {
public:
    explicit FrozenWatcher(TerrainWatcher * watcher) : watcher_(watcher), wasFrozen_(watcher->getFreeze()) {
        watcher_->setFreeze(true);
    }
    ~FrozenWatcher() { watcher_->setFreeze(wasFrozen_); }
    FrozenWatcher(const FrozenWatcher &) = delete;
    FrozenWatcher & operator=(const FrozenWatcher &) = delete;

private:
    const NBX::SO<TerrainWatcher> watcher_;
    const bool wasFrozen_;
};

VectorTextureScopeGL::VectorTextureScopeGL(NBX::EngineGL * engine, unsigned size)
    : VectorTextureScopeGL(engine,
                           VectorTextureCanvasGL::canvas(size, engine ? engine->glCanvas() : nullptr)) {}

VectorTextureScopeGL::VectorTextureScopeGL(NBX::EngineGL * engine, const NBX::SO<NBX::GLCanvas> & canvas) {
    ++s_scopes;
    if (!canvas->makeContextCurrent()) return;
    canvas_ = canvas;
    install(engine);
}

VectorTextureScopeGL::~VectorTextureScopeGL() {
    --s_scopes;
    if (!canvas_) return;
    for (; !attributes_.empty(); attributes_.pop_back())
        canvas_->engine()->pop(attributes_.back().get());
    canvas_->releaseContext();
}

bool VectorTextureScopeGL::isActive() {
    return s_scopes > 0;
}

void VectorTextureScopeGL::install(NBX::EngineGL * engine) {
    if (engine) {
        const NBX::SO<NBX::MonoAttribute> active = engine->getAttribute(TerrainWatcher::ClassNameNBX());
        if (const auto watcher = NBX::soCast<TerrainWatcher>(active)) {
            watcher_ = std::make_unique<FrozenWatcher>(watcher.get());
            push(watcher);
        }
        push(heightScaling(*engine));
    }
    push(new NBX::ContextData<bool>("ZMT_VectorTexture_Attrib_Flag", true));
    push(NBX::ColorBufferGL::newBlending(true, GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA));
    push(new NBX::DepthBufferGL(NBX::DepthBufferGL::O_All, true, true, GL_LEQUAL, 0.0, 1.0));
}

void VectorTextureScopeGL::push(const NBX::SO<NBX::Attribute> & attribute) {
    if (!attribute) return;
    canvas_->engine()->push(attribute.get());
    attributes_.push_back(attribute);
}

} // namespace ZMT::CORE
