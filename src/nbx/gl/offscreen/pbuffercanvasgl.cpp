#include <nbx/gl/offscreen/pbuffercanvasgl.h>

#include <algorithm>

#include <GL/glew.h>

#include <nbx/gl/context/contextgl.h>
#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(PBufferCanvasGL, GLCanvas)

PBufferCanvasGL::PBufferCanvasGL(unsigned width, unsigned height, unsigned properties, GLCanvas *,
                                 bool largestPossible, unsigned textureFormat, unsigned textureTarget)
    : GLCanvas(width, height, properties), largestPossible_(largestPossible), textureFormat_(textureFormat) {
    NBX_CHECK(textureTarget == GL_TEXTURE_2D, L"only two-dimensional textures can be made of a canvas");
    create();
}

PBufferCanvasGL::~PBufferCanvasGL() {
    destroy();
}

bool PBufferCanvasGL::isSupported(unsigned properties) {
    return ContextGL::isSupported() && (!(properties & FLOAT_BUFFER) || ContextGL::hasFloatPixelBuffers());
}

unsigned PBufferCanvasGL::maxSize() const {
    return isCreated() ? ContextGL::maxPixelBufferSize() : 0;
}

SO<ContextGL> PBufferCanvasGL::createContext() {
    const unsigned limit = ContextGL::maxPixelBufferSize();
    if (largestPossible_) {
        width_ = std::min(width_, limit);
        height_ = std::min(height_, limit);
    }
    ContextGL::Format format;
    format.alpha = hasProperty(ALPHA_BUFFER);
    format.depth = hasProperty(DEPTH_BUFFER);
    format.stencil = hasProperty(STENCIL_BUFFER);
    format.floats = hasProperty(FLOAT_BUFFER);
    const SO<ContextGL> context(new ContextGL);
    if (!context->create(width_, height_, format)) return nullptr;
    format = context->format();
    properties_ = COLOR_BUFFER | (format.alpha ? ALPHA_BUFFER : 0) | (format.depth ? DEPTH_BUFFER : 0) |
                  (format.stencil ? STENCIL_BUFFER : 0) | (format.floats ? FLOAT_BUFFER : 0);
    return context;
}

bool PBufferCanvasGL::createBuffers() {
    // Mesa cuts colours to 0 to 1 in pixel buffers of floats as well, unless it is told not to.
    if (hasProperty(FLOAT_BUFFER) && GLEW_ARB_color_buffer_float) {
        glClampColorARB(GL_CLAMP_FRAGMENT_COLOR_ARB, GL_FALSE);
        glClampColorARB(GL_CLAMP_READ_COLOR_ARB, GL_FALSE);
    }
    return true;
}

bool PBufferCanvasGL::resizeBuffers(unsigned width, unsigned height) {
    return context()->resize(width, height);
}

SO<Texture2DGL> PBufferCanvasGL::newTexture(unsigned format, bool mipmaps) {
    if (!isCreated()) return nullptr;
    SO<Texture2DGL> texture(
        new Texture2DGL(getWidth(), getHeight(), format ? format : textureFormat_, mipmaps));
    return updateTexture(texture.get()) ? texture : nullptr;
}

bool PBufferCanvasGL::updateTexture(Texture2DGL * texture) {
    NBX_CHECK(texture, L"no texture");
    if (!texture || !isCreated()) return false;
    const bool sizeFits = texture->getWidth() == getWidth() && texture->getHeight() == getHeight();
    NBX_CHECK(sizeFits, L"the texture does not have the size of the canvas");
    if (!sizeFits || !makeContextCurrent()) return false;
    GLint before = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &before);
    texture->bind(engine().get());
    glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 0, GLsizei(getWidth()), GLsizei(getHeight()));
    texture->contentChanged();
    texture->bind(engine().get());
    glBindTexture(GL_TEXTURE_2D, GLuint(before));
    // The other contexts see the texels only when this one has got to them.
    glFlush();
    releaseContext();
    return true;
}

} // namespace NBX
