#include <nbx/gl/offscreen/offscreencanvasgl.h>

#include <algorithm>

#include <GL/glew.h>

#include <nbx/gl/context/contextgl.h>
#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(OffscreenCanvasGL, GLCanvas)

struct OffscreenCanvasGL::Buffers {
    NameGL frameBuffer, color, depth;
};

namespace {

constexpr unsigned allProperties =
    GLCanvas::COLOR_BUFFER | GLCanvas::DEPTH_BUFFER | GLCanvas::ALPHA_BUFFER | GLCanvas::STENCIL_BUFFER;

NameGL newRenderBuffer(GLenum format, unsigned width, unsigned height) {
    NameGL buffer = NameGL::generate(NameGL::NK_RenderBuffer);
    glBindRenderbufferEXT(GL_RENDERBUFFER_EXT, buffer.get());
    glRenderbufferStorageEXT(GL_RENDERBUFFER_EXT, format, GLsizei(width), GLsizei(height));
    glBindRenderbufferEXT(GL_RENDERBUFFER_EXT, 0);
    return buffer;
}

void attach(GLenum point, const NameGL & buffer) {
    glFramebufferRenderbufferEXT(GL_FRAMEBUFFER_EXT, point, GL_RENDERBUFFER_EXT, buffer.get());
}

} // namespace

OffscreenCanvasGL::OffscreenCanvasGL(unsigned width, unsigned height, GLCanvas *)
    : GLCanvas(width, height, allProperties), buffers_(std::make_unique<Buffers>()) {
    create();
}

OffscreenCanvasGL::~OffscreenCanvasGL() {
    destroy();
}

bool OffscreenCanvasGL::isSupported() {
    return ContextGL::isSupported();
}

unsigned OffscreenCanvasGL::maxSize() const {
    return isCreated() ? maxSize_ : 0;
}

unsigned OffscreenCanvasGL::frameBuffer() const {
    return buffers_->frameBuffer.get();
}

SO<ContextGL> OffscreenCanvasGL::createContext() {
    // The pixel buffer only makes the context complete; nothing is drawn into it.
    const SO<ContextGL> context(new ContextGL);
    return context->create(1, 1, ContextGL::Format()) ? context : nullptr;
}

bool OffscreenCanvasGL::createBuffers() {
    if (!FrameBufferObjectGL::isSupported()) {
        NBX_FAILURE(L"the graphics driver has no frame buffer objects; use a canvas with pixel buffers");
        return false;
    }
    GLint renderBuffer = 0;
    GLint viewport[2] = {0, 0};
    glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE_EXT, &renderBuffer);
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, viewport);
    maxSize_ = unsigned(std::min({renderBuffer, viewport[0], viewport[1]}));
    return resizeBuffers(width_, height_);
}

void OffscreenCanvasGL::destroyBuffers() {
    *buffers_ = Buffers();
}

bool OffscreenCanvasGL::resizeBuffers(unsigned width, unsigned height) {
    if (std::max(width, height) > maxSize_) {
        NBX_FAILURE(L"the driver makes no frame buffer of " << width << L" by " << height << L" pixels");
        return false;
    }
    Buffers made;
    made.color = newRenderBuffer(GL_RGBA8, width, height);
    made.depth = newRenderBuffer(GL_DEPTH24_STENCIL8, width, height);
    made.frameBuffer = NameGL::generate(NameGL::NK_FrameBuffer);
    glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, made.frameBuffer.get());
    attach(GL_COLOR_ATTACHMENT0_EXT, made.color);
    attach(GL_DEPTH_ATTACHMENT_EXT, made.depth);
    attach(GL_STENCIL_ATTACHMENT_EXT, made.depth);
    const bool complete = glCheckFramebufferStatusEXT(GL_FRAMEBUFFER_EXT) == GL_FRAMEBUFFER_COMPLETE_EXT;
    if (complete)
        *buffers_ = std::move(made);
    else
        NBX_FAILURE(L"cannot make a frame buffer of " << width << L" by " << height << L" pixels");
    glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, frameBuffer());
    return complete;
}

} // namespace NBX
