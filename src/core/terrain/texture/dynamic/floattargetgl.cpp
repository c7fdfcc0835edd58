#include "floattargetgl.h"

#include <GL/glew.h>

namespace ZMT::CORE {

namespace {

void clear() {
    glPushAttrib(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_SCISSOR_BIT);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glClearColor(FloatTargetGL::noData, FloatTargetGL::noData, FloatTargetGL::noData, FloatTargetGL::noData);
    glClearDepth(1.0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glPopAttrib();
}

} // namespace

FloatTargetGL::FloatTargetGL(NBX::EngineGL * engine, unsigned size)
    : pixels_(new NBX::RenderTextureGL(engine, size, size, GL_FLOAT, GL_RGBA)),
      depths_(new NBX::RenderTextureGL(engine, size, size, GL_FLOAT, GL_DEPTH_COMPONENT)),
      target_(new NBX::FrameBufferObjectGL(engine, size, size)) {
    pixels_->attachTo(target_.get());
    depths_->attachTo(target_.get());
}

void FloatTargetGL::drawInto(NBX::EngineGL * engine, const std::function<void()> & draw) const {
    const NBX::FrameBufferObjectGL::Scope scope(engine, *target_);
    clear();
    draw();
    pixels_->texture()->contentChanged();
}

} // namespace ZMT::CORE
