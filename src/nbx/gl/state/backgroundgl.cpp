#include <nbx/gl/state/backgroundgl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include "nbx/scene/base/serializecolor.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(BackgroundGL, MonoAttribute)

BackgroundGL::BackgroundGL(const Color & color) : MonoAttribute(true), color_(color) {}

void BackgroundGL::setColor(const Color & color) {
    if (color == color_) return;
    color_ = color;
    modified();
}

void BackgroundGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    serializeColor(m, "color", color_, Color(0.0F, 0.0F, 0.0F, 0.0F));
}

namespace {

void apply(EngineGL &, const BackgroundGL & background, bool entering) {
    if (!entering) return;
    constexpr GLbitfield buffers = GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT;
    glPushAttrib(buffers | GL_SCISSOR_BIT);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glStencilMask(~0U);
    const Color & color = background.getColor();
    glClearColor(color[0], color[1], color[2], color[3]);
    glClearDepth(1.0);
    glClearStencil(0);
    glClear(buffers);
    glPopAttrib();
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(BackgroundGL, apply)

} // namespace NBX
