#include <nbx/gl/offscreen/renderbuffergl.h>

#include <algorithm>

#include <GL/glew.h>

#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(RenderBufferGL, SharedObj)

RenderBufferGL::RenderBufferGL(EngineGL * engine, unsigned width, unsigned height, unsigned format,
                               unsigned samples)
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
    const unsigned possible = std::min(samples, maxSamples());
    if (possible > 1)
        glRenderbufferStorageMultisample(GL_RENDERBUFFER_EXT, GLsizei(possible), format, GLsizei(width),
                                         GLsizei(height));
    else
        glRenderbufferStorageEXT(GL_RENDERBUFFER_EXT, format, GLsizei(width), GLsizei(height));
    glBindRenderbufferEXT(GL_RENDERBUFFER_EXT, GLuint(before));
}

unsigned RenderBufferGL::maxSize() {
    GLint size = 0;
    glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE_EXT, &size);
    return unsigned(size);
}

unsigned RenderBufferGL::maxSamples() {
    if (!GLEW_VERSION_3_0 && !GLEW_ARB_framebuffer_object) return 1;
    GLint samples = 1;
    glGetIntegerv(GL_MAX_SAMPLES, &samples);
    return unsigned(std::max(samples, 1));
}

} // namespace NBX
