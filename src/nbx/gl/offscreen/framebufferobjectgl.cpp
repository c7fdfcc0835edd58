// By GL_EXT_framebuffer_object, which drivers have that know no newer one. Attaching binds the object for a
// moment and chooses the buffers to draw and read, since an object without colours is incomplete with the
// default choice. `bind` and `unbind` keep what they found in a stack, as bindings may lie within each other.

#include <nbx/gl/offscreen/framebufferobjectgl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include "nbx/gl/context/framereadergl.h"
#include <nbx/gl/context/contextgl.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(FrameBufferObjectGL, MonoAttribute)

namespace {

/// Binds a frame buffer; the one before is bound again at the end of the scope.
class FrameBufferBinding {
public:
    explicit FrameBufferBinding(unsigned name) {
        glGetIntegerv(GL_FRAMEBUFFER_BINDING_EXT, &before_);
        glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, name);
    }
    ~FrameBufferBinding() { glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, GLuint(before_)); }
    FrameBufferBinding(const FrameBufferBinding &) = delete;
    FrameBufferBinding & operator=(const FrameBufferBinding &) = delete;

private:
    GLint before_ = 0;
};

bool hasStencil(unsigned format) {
    return format == GL_DEPTH24_STENCIL8 || format == GL_DEPTH_STENCIL || format == GL_DEPTH32F_STENCIL8;
}

} // namespace

FrameBufferObjectGL::FrameBufferObjectGL(EngineGL * engine, unsigned width, unsigned height)
    : MonoAttribute(true), width_(width), height_(height) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    if (isSupported())
        name_ = NameGL::generate(NameGL::NK_FrameBuffer);
    else
        NBX_FAILURE(L"the graphics driver has no frame buffer objects");
}

FrameBufferObjectGL::~FrameBufferObjectGL() = default;

bool FrameBufferObjectGL::isSupported() {
    return ContextGL::hasFrameBufferObjects();
}

void FrameBufferObjectGL::attachColorTexture(unsigned index, SO<SharedObj> keeper, unsigned target,
                                             unsigned name) {
    attachTexture(GL_COLOR_ATTACHMENT0_EXT + index, keeper, target, name);
}

void FrameBufferObjectGL::attachDepthTexture(SO<SharedObj> keeper, unsigned target, unsigned name) {
    attachTexture(GL_DEPTH_ATTACHMENT_EXT, keeper, target, name);
}

void FrameBufferObjectGL::attachColor(unsigned index, SO<RenderBufferGL> buffer) {
    attachBuffer(GL_COLOR_ATTACHMENT0_EXT + index, buffer);
}

void FrameBufferObjectGL::attachDepth(SO<RenderBufferGL> buffer) {
    NBX_CHECK(buffer, L"no render buffer");
    if (!buffer) return;
    attachBuffer(GL_DEPTH_ATTACHMENT_EXT, buffer);
    if (hasStencil(buffer->format())) attachBuffer(GL_STENCIL_ATTACHMENT_EXT, buffer);
}

void FrameBufferObjectGL::attachTexture(unsigned point, SO<SharedObj> keeper, unsigned target,
                                        unsigned name) {
    if (!name_) return;
    const FrameBufferBinding binding(name_.get());
    glFramebufferTexture2DEXT(GL_FRAMEBUFFER_EXT, point, target, name, 0);
    attachments_[point] = keeper;
    chooseBuffers();
}

void FrameBufferObjectGL::attachBuffer(unsigned point, SO<RenderBufferGL> buffer) {
    NBX_CHECK(buffer, L"no render buffer");
    if (!name_ || !buffer) return;
    const FrameBufferBinding binding(name_.get());
    glFramebufferRenderbufferEXT(GL_FRAMEBUFFER_EXT, point, GL_RENDERBUFFER_EXT, buffer->name());
    attachments_[point] = buffer;
    chooseBuffers();
}

void FrameBufferObjectGL::chooseBuffers() {
    const auto color = attachments_.lower_bound(GL_COLOR_ATTACHMENT0_EXT);
    const bool hasColor = color != attachments_.end() && color->first < GL_DEPTH_ATTACHMENT_EXT;
    glDrawBuffer(hasColor ? color->first : GL_NONE);
    glReadBuffer(hasColor ? color->first : GL_NONE);
}

bool FrameBufferObjectGL::isComplete() const {
    if (!name_.isKnownHere()) return false;
    const FrameBufferBinding binding(name_.get());
    return glCheckFramebufferStatusEXT(GL_FRAMEBUFFER_EXT) == GL_FRAMEBUFFER_COMPLETE_EXT;
}

void FrameBufferObjectGL::bind(EngineGL * engine) const {
    NBX_CHECK(engine, L"no engine");
    if (!engine || !isSupported()) return;
    NBX_CHECK(name_.isKnownHere(), L"the frame buffer object belongs to another context");
    Found found;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING_EXT, &found.frameBuffer);
    glGetIntegerv(GL_VIEWPORT, found.viewport);
    found_.push_back(found);
    if (!name_.isKnownHere()) return;
    glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, name_.get());
    glViewport(0, 0, GLsizei(width_), GLsizei(height_));
}

void FrameBufferObjectGL::unbind(EngineGL * engine) const {
    NBX_CHECK(engine, L"no engine");
    if (!engine || !isSupported()) return;
    NBX_CHECK(!found_.empty(), L"the frame buffer object is not bound");
    if (found_.empty()) return;
    const Found found = found_.back();
    found_.pop_back();
    glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, GLuint(found.frameBuffer));
    glViewport(found.viewport[0], found.viewport[1], found.viewport[2], found.viewport[3]);
}

bool FrameBufferObjectGL::renderImage(EngineGL * engine, Image * target, unsigned index) const {
    NBX_CHECK(engine, L"no engine");
    NBX_CHECK(target, L"no target image");
    if (!engine || !target || !name_.isKnownHere()) return false;
    const bool fits = target->width() == int(width_) && target->height() == int(height_);
    NBX_CHECK(fits, L"the image does not have the size of the frame buffer");
    if (!fits) return false;
    const FrameBufferBinding binding(name_.get());
    GLint before = 0;
    glGetIntegerv(GL_READ_BUFFER, &before);
    glReadBuffer(GL_COLOR_ATTACHMENT0_EXT + index);
    const bool result = FrameReaderGL::read(target, Area(0, 0, width_, height_));
    glReadBuffer(GLenum(before));
    return result;
}

namespace {

/// Directs drawing to the frame buffer object, or back to the canvas.
void apply(EngineGL & engine, const FrameBufferObjectGL & object, bool entering) {
    if (!FrameBufferObjectGL::isSupported()) return;
    if (entering) {
        glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, object.name());
        glViewport(0, 0, GLsizei(object.width()), GLsizei(object.height()));
    } else if (const GLCanvas * canvas = engine.glCanvas()) {
        glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, canvas->frameBuffer());
        glViewport(0, 0, GLsizei(canvas->getWidth()), GLsizei(canvas->getHeight()));
    }
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(FrameBufferObjectGL, apply)

} // namespace NBX
