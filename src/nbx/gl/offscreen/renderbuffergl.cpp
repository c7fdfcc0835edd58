#include <nbx/gl/offscreen/renderbuffergl.h>

#include <algorithm>

#include <GL/glew.h>

#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(RenderBufferGL, SharedObj)

RenderBufferGL::RenderBufferGL(EngineGL * engine, unsigned width, unsigned height, unsigned format)
    : width_(width), height_(height), format_(format) {
    NBX_CHECK(engine, L"no engine");
    if (!engine || !FrameBufferObjectGL::isSupported()) return;
    const unsigned limit = maxSize();
    NBX_CHECK_RANGE(1u, std::min(width, height), limit + 1);
    NBX_CHECK_RANGE(1u, std::max(width, height), limit + 1);
    if (std::min(width, height) < 1 || std::max(width, height) > limit) return;
    name_ = NameGL::generate(NameGL::NK_RenderBuffer);
    GLint before = 0;
    glGetIntegerv(GL_RENDERBUFFER_BINDING_EXT, &before);
    glBindRenderbufferEXT(GL_RENDERBUFFER_EXT, name_.get());
    glRenderbufferStorageEXT(GL_RENDERBUFFER_EXT, format, GLsizei(width), GLsizei(height));
    glBindRenderbufferEXT(GL_RENDERBUFFER_EXT, GLuint(before));
}

unsigned RenderBufferGL::maxSize() {
    GLint size = 0;
    glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE_EXT, &size);
    return unsigned(size);
}

} // namespace NBX
