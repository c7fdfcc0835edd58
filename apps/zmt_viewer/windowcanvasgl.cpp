#include "windowcanvasgl.h"

#include <algorithm>

#include <GL/glew.h>

#include "windowcontextgl.h"

#include <QOpenGLWidget>

NBX_CLASS_IMPL(WindowCanvasGL, NBX::GLCanvas)

WindowCanvasGL::WindowCanvasGL(QOpenGLWidget * widget)
    : GLCanvas(1, 1, COLOR_BUFFER | DEPTH_BUFFER | STENCIL_BUFFER), widget_(widget) {}

WindowCanvasGL::~WindowCanvasGL() {
    destroy();
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
