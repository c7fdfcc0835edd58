#include "vectorsamplesgl.h"

#include <algorithm>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/scene/node/scenenode.h>

namespace ZMT::CORE {

namespace {

struct Buffers {
    NBX::SO<NBX::FrameBufferObjectGL> object;
    unsigned samples = 1;

    bool fit(const NBX::GLCanvas & canvas, unsigned wanted) const {
        return object && samples == wanted && object->width() == canvas.getWidth() &&
               object->height() == canvas.getHeight() && object->isComplete();
    }
};

/// Never destroyed itself: textures may be drawn while libraries unload.
Buffers & buffers() {
    static auto & instance = *new Buffers;
    return instance;
}

NBX::SO<NBX::FrameBufferObjectGL> newBuffers(NBX::GLCanvas & canvas, unsigned samples) {
    NBX::EngineGL * const engine = canvas.engine().get();
    const unsigned width = canvas.getWidth(), height = canvas.getHeight();
    const auto newBuffer = [&](unsigned format) {
        return NBX::SO<NBX::RenderBufferGL>(new NBX::RenderBufferGL(engine, width, height, format, samples));
    };
    NBX::SO<NBX::FrameBufferObjectGL> object(new NBX::FrameBufferObjectGL(engine, width, height));
    object->attachColor(0, newBuffer(GL_RGBA8));
    object->attachDepth(newBuffer(GL_DEPTH24_STENCIL8));
    return object->isComplete() ? object : nullptr;
}

/// Of the current context.
NBX::SO<NBX::FrameBufferObjectGL> buffersFor(NBX::GLCanvas & canvas, unsigned wanted) {
    const unsigned samples = std::min(wanted, NBX::RenderBufferGL::maxSamples());
    if (samples < 2) return nullptr;
    Buffers & kept = buffers();
    if (!kept.fit(canvas, samples)) kept = {newBuffers(canvas, samples), samples};
    return kept.object;
}

/// Directs what is drawn behind it into buffers, which it clears.
class DirectedGL : public NBX::SceneNode {
    NBX_TEMPLATE_CLASS(DirectedGL, NBX::SceneNode)
public:
    explicit DirectedGL(const NBX::FrameBufferObjectGL & object) : object_(object) {}
    void evaluate(NBX::Engine *) override {
        glBindFramebuffer(GL_FRAMEBUFFER, object_.name());
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    }
    NBX::Bounds boundingBox(NBX::Engine *) override { return {}; }

private:
    const NBX::FrameBufferObjectGL & object_; ///< outlives this
};

} // namespace

VectorSamplesGL::VectorSamplesGL(NBX::GLCanvas & canvas, unsigned samples) : canvas_(canvas) {
    if (samples < 2 || !dynamic_cast<NBX::PBufferCanvasGL *>(&canvas_) || !canvas_.makeContextCurrent())
        return;
    samples_ = buffersFor(canvas_, samples);
    if (samples_) canvas_.append(new DirectedGL(*samples_));
    canvas_.releaseContext();
}

void VectorSamplesGL::average() const {
    if (!samples_) return;
    const auto width = GLint(canvas_.getWidth()), height = GLint(canvas_.getHeight());
    glPushAttrib(GL_COLOR_BUFFER_BIT | GL_SCISSOR_BIT);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, samples_->name());
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, canvas_.frameBuffer());
    glBlitFramebuffer(0, 0, width, height, 0, 0, width, height, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_FRAMEBUFFER, canvas_.frameBuffer());
    glPopAttrib();
}

void VectorSamplesGL::release() {
    buffers() = Buffers();
}

} // namespace ZMT::CORE
