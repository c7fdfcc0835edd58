#include "windowcanvasgl.h"

#include <algorithm>

#include <GL/glew.h>

#include <nbx/engine/clock.h>

#include "windowcontextgl.h"

#include <QOpenGLWidget>

NBX_CLASS_IMPL(WindowCanvasGL, NBX::GLCanvas)

WindowCanvasGL::WindowCanvasGL(QOpenGLWidget * widget)
    : GLCanvas(1, 1, COLOR_BUFFER | DEPTH_BUFFER | STENCIL_BUFFER), widget_(widget) {}

WindowCanvasGL::~WindowCanvasGL() {
    destroy();
}

void WindowCanvasGL::paint() {
    isAwaited_ = false;
    if (isRedisplayEnabled())
        redisplay();
    else
        postForRedisplay(0.0);
}

void WindowCanvasGL::redisplay() {
    isAwaited_ = false;
    GLCanvas::redisplay();
}

/// A hidden widget paints when it is shown again; to ask it once more would not help.
NBX::NBXTime WindowCanvasGL::nextTick(const NBX::NBXTime & lastTick) const {
    return isAwaited_ ? NBX::Clock::never() : GLCanvas::nextTick(lastTick);
}

void WindowCanvasGL::serveRequest() {
    if (isAwaited_) return;
    isAwaited_ = true;
    widget_->update();
}

unsigned WindowCanvasGL::frameBuffer() const {
    return widget_->defaultFramebufferObject();
}

NBX::SO<NBX::ContextGL> WindowCanvasGL::createContext() {
    isShared_ = NBX::ContextGL::shareWithCurrent();
    return new WindowContextGL(widget_);
}

bool WindowCanvasGL::createBuffers() {
    GLint viewport[2] = {0, 0};
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, viewport);
    maxSize_ = unsigned(std::max(0, std::min(viewport[0], viewport[1])));
    return true;
}

/// The widget has done it.
bool WindowCanvasGL::resizeBuffers(unsigned width, unsigned height) {
    return width <= maxSize_ && height <= maxSize_;
}
