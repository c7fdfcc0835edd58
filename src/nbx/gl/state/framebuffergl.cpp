#include <nbx/gl/state/framebuffergl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(FrameBufferGL, MonoAttribute)

namespace {

constexpr unsigned s_allBuffers = FrameBufferGL::M_Color | FrameBufferGL::M_Depth | FrameBufferGL::M_Stencil;

void apply(EngineGL &, const FrameBufferGL & attribute, bool entering) {
    if (!entering || attribute.operation() != FrameBufferGL::O_Clear) return;
    GLbitfield buffers = 0;
    if (attribute.mask() & FrameBufferGL::M_Color) buffers |= GL_COLOR_BUFFER_BIT;
    if (attribute.mask() & FrameBufferGL::M_Depth) buffers |= GL_DEPTH_BUFFER_BIT;
    if (attribute.mask() & FrameBufferGL::M_Stencil) buffers |= GL_STENCIL_BUFFER_BIT;
    if (buffers == 0) return;
    glPushAttrib(buffers);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glStencilMask(~0U);
    glClear(buffers);
    glPopAttrib();
}

} // namespace

FrameBufferGL::FrameBufferGL(unsigned mask, Operation operation)
    : MonoAttribute(true), mask_(mask & s_allBuffers), operation_(operation) {
    NBX_CHECK((mask & ~s_allBuffers) == 0, L"no buffer has the mask " << mask);
}

void FrameBufferGL::setOperation(Operation operation) {
    operation_ = operation;
    modified();
}

NBX_REGISTER_ATTRIBUTE_GL(FrameBufferGL, apply)

} // namespace NBX
