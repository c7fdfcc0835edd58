// Making and ending a context with its buffers and engine, then pictures, then copies of them. A context is
// made current by pairs of calls, which may lie within each other and give back the one before. A large
// picture is drawn tile by tile, each complete at once.

#include <nbx/gl/context/glcanvas.h>

#include <algorithm>

#include <GL/glew.h>

#include "attributepaintergl.h"

#include "framereadergl.h"
#include <nbx/gl/context/contextgl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/view/viewport.h>

namespace NBX {

NBX_CLASS_IMPL(GLCanvas, Canvas)

namespace {

/// A picture in the making, which comes to its end also when a painter throws. There is none where the
/// context does not become current.
class Redisplay {
public:
    explicit Redisplay(GLCanvas & canvas) : canvas_(canvas) {
        canvas_.prepareRedisplay();
        isPrepared_ = canvas_.isContextCurrent();
    }
    ~Redisplay() {
        if (isPrepared_) canvas_.finishRedisplay();
    }
    Redisplay(const Redisplay &) = delete;
    Redisplay & operator=(const Redisplay &) = delete;

    bool isPrepared() const { return isPrepared_; }

private:
    GLCanvas & canvas_;
    bool isPrepared_;
};

/// While it lives, pictures are complete at once.
class CompletePictures {
public:
    explicit CompletePictures(Canvas & canvas) : canvas_(canvas), mode_(canvas.getRenderingMode()) {
        canvas_.setRenderingMode(0);
    }
    ~CompletePictures() { canvas_.setRenderingMode(mode_); }
    CompletePictures(const CompletePictures &) = delete;
    CompletePictures & operator=(const CompletePictures &) = delete;

private:
    Canvas & canvas_;
    const int mode_;
};

} // namespace

GLCanvas::GLCanvas(unsigned width, unsigned height, unsigned properties)
    : width_(std::max(1u, width)), height_(std::max(1u, height)), properties_(properties) {
    NBX_CHECK(width > 0 && height > 0, L"a canvas has at least one pixel");
}

GLCanvas::~GLCanvas() = default;

bool GLCanvas::create() {
    if (isCreated()) return true;
    context_ = createContext();
    if (!context_) return false;
    const bool made = makeContextCurrent();
    const bool complete = made && createBuffers() && createEngine();
    if (made) releaseContext();
    if (!complete) context_ = nullptr;
    return complete;
}

bool GLCanvas::createEngine() {
    engine_ = SO<EngineGL>(new EngineGL(this));
    initializeState();
    const Area all(0, 0, width_, height_);
    engine_->beginPicture(all, all);
    return true;
}

/// Whoever changes one of these leaves it like this.
void GLCanvas::initializeState() {
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_NORMALIZE);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
}

void GLCanvas::destroy() {
    if (!context_) return;
    if (makeContextCurrent()) {
        if (engine_) engine_->cleanUp();
        destroyBuffers();
        releaseContext();
    }
    if (engine_) engine_->detachCanvas();
    engine_ = nullptr;
    context_->destroy();
    context_ = nullptr;
    previous_.clear();
}

SO<Engine> GLCanvas::processor() const {
    return engine_;
}

bool GLCanvas::makeContextCurrent() {
    if (!context_) return false;
    const SO<ContextGL> before(ContextGL::current());
    if (!context_->makeCurrent()) return false;
    previous_.push_back(before);
    return true;
}

void GLCanvas::releaseContext() {
    if (previous_.empty()) return;
    const SO<ContextGL> before = previous_.back();
    previous_.pop_back();
    if (before == context_) return;
    if (before && before->isCreated())
        before->makeCurrent();
    else
        context_->release();
}

bool GLCanvas::isContextCurrent() const {
    return context_ && context_->isCurrent();
}

/// Without frame buffer objects there is nothing but the canvas to draw on.
void GLCanvas::bindFrameBuffer() const {
    if (ContextGL::hasFrameBufferObjects()) glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, frameBuffer());
}

void GLCanvas::prepareRedisplay() {
    if (!makeContextCurrent()) return;
    bindFrameBuffer();
    engine_->freeUnusedDisplayLists();
}

void GLCanvas::finishRedisplay() {
    glFlush();
    releaseContext();
}

namespace {

/// The bias of the textures of all units, while this exists.
class TextureBiasGL {
public:
    explicit TextureBiasGL(double levels) : levels_(levels) {
        if (levels_ != 0.0) set(levels_);
    }
    ~TextureBiasGL() {
        if (levels_ != 0.0) set(0.0);
    }
    TextureBiasGL(const TextureBiasGL &) = delete;
    TextureBiasGL & operator=(const TextureBiasGL &) = delete;

private:
    static void set(double levels) {
        GLint units = 0, before = 0;
        glGetIntegerv(GL_MAX_TEXTURE_COORDS, &units);
        glGetIntegerv(GL_ACTIVE_TEXTURE, &before);
        for (GLint unit = 0; unit < units; ++unit) {
            glActiveTexture(GLenum(GL_TEXTURE0 + unit));
            glTexEnvf(GL_TEXTURE_FILTER_CONTROL, GL_TEXTURE_LOD_BIAS, GLfloat(levels));
        }
        glActiveTexture(GLenum(before));
    }

    double levels_;
};

} // namespace

void GLCanvas::redisplay() {
    clearRedisplayRequests();
    if (!isCreated()) return;
    const Redisplay redisplay(*this);
    if (!redisplay.isPrepared()) return;
    const Area all(0, 0, width_, height_);
    drawPicture(all, all);
}

void GLCanvas::drawPicture(const Area & picture, const Area & tile) {
    const TextureBiasGL bias(textureBias_);
    engine_->beginPicture(picture, tile);
    clear();
    paintRootNodes(engine_.get(), picture);
}

/// Masks and scissors do not hold for the background.
void GLCanvas::clear() {
    glPushAttrib(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT | GL_SCISSOR_BIT);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glStencilMask(~0u);
    glClearColor(background_[0], background_[1], background_[2], background_[3]);
    glClearDepth(1.0);
    glClearStencil(0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    glPopAttrib();
}

bool GLCanvas::setSize(unsigned width, unsigned height) {
    NBX_CHECK(width > 0 && height > 0, L"a canvas has at least one pixel");
    if (width == 0 || height == 0) return false;
    if (width == width_ && height == height_) return true;
    if (isCreated()) {
        if (!makeContextCurrent()) return false;
        const bool resized = resizeBuffers(width, height);
        const Area all(0, 0, width, height);
        if (resized) engine_->beginPicture(all, all);
        releaseContext();
        if (!resized) return false;
    }
    width_ = width;
    height_ = height;
    modified();
    return true;
}

void GLCanvas::setTextureBias(double levels) {
    textureBias_ = levels;
    modified();
}

void GLCanvas::setBackgroundColor(const Color & color) {
    background_ = color;
    modified();
}

LayerSequence GLCanvas::snapshotLayers() const {
    return hasProperty(ALPHA_BUFFER) ? LS_RGBA : LS_RGB;
}

SO<Image> GLCanvas::snapshot() {
    if (!isCreated()) return nullptr;
    SO<Image> image(new MemoryImage(int(width_), int(height_), snapshotLayers()));
    return snapshot(image.get()) ? image : nullptr;
}

bool GLCanvas::snapshot(Image * target) {
    NBX_CHECK(target, L"no target image");
    if (!target || !isCreated() || !makeContextCurrent()) return false;
    bindFrameBuffer();
    const unsigned width = std::min(width_, unsigned(std::max(0, target->width())));
    const unsigned height = std::min(height_, unsigned(std::max(0, target->height())));
    const bool result = FrameReaderGL::read(target, Area(0, 0, width, height));
    releaseContext();
    return result;
}

SO<Image> GLCanvas::largeScaleSnapshot(unsigned width, unsigned height) {
    if (!isCreated()) return nullptr;
    SO<Image> image(new MemoryImage(int(width), int(height), snapshotLayers()));
    return largeScaleSnapshot(image.get()) ? image : nullptr;
}

bool GLCanvas::largeScaleSnapshot(Image * target, unsigned properties) {
    NBX_CHECK(target, L"no target image");
    NBX_CHECK(properties == COLOR_BUFFER, L"only the colours can be copied");
    if (!target || properties != COLOR_BUFFER || !isCreated()) return false;
    if (target->width() <= 0 || target->height() <= 0) return false;
    // Nothing can come later: the tiles are drawn once.
    const CompletePictures completePictures(*this);
    const Redisplay redisplay(*this);
    return redisplay.isPrepared() && drawTiles(target);
}

bool GLCanvas::drawTiles(Image * target) {
    const unsigned width = unsigned(target->width()), height = unsigned(target->height());
    const Area picture(0, 0, width, height);
    for (unsigned y = 0; y < height; y += height_)
        for (unsigned x = 0; x < width; x += width_) {
            const unsigned tileWidth = std::min(width_, width - x),
                           tileHeight = std::min(height_, height - y);
            drawPicture(picture, Area(int(x), int(y), tileWidth, tileHeight));
            if (!FrameReaderGL::read(target, Area(0, 0, tileWidth, tileHeight), int(x), int(y))) return false;
        }
    return true;
}

namespace {

void apply(EngineGL & engine, const Viewport & viewport, bool entering) {
    if (entering)
        engine.setViewport(viewport.getArea());
    else
        engine.resetViewport();
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(Viewport, apply)

} // namespace NBX
