#include <nbx/gl/state/stencilbuffergl.h>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"

namespace NBX {

NBX_CLASS_IMPL(StencilBufferGL, MonoAttribute)

StencilBufferGL::StencilBufferGL(unsigned operation, unsigned function, int reference, unsigned mask,
                                 unsigned onFail, unsigned onDepthFail, unsigned onPass)
    : MonoAttribute(true), operation_(operation), function_(function), reference_(reference), mask_(mask),
      onFail_(onFail), onDepthFail_(onDepthFail), onPass_(onPass) {}

namespace {

void emit(const StencilBufferGL & state) {
    if (state.tests())
        glEnable(GL_STENCIL_TEST);
    else
        glDisable(GL_STENCIL_TEST);
    glStencilFunc(state.function(), state.reference(), state.mask());
    glStencilOp(state.onFail(), state.onDepthFail(), state.onPass());
}

void apply(EngineGL &, const StencilBufferGL & state, bool entering) {
    static const StencilBufferGL defaults(StencilBufferGL::O_None, GL_ALWAYS, 0, ~0U, GL_KEEP, GL_KEEP,
                                          GL_KEEP);
    emit(entering ? state : defaults);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(StencilBufferGL, apply)

} // namespace NBX
