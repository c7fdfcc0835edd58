#include "windowcanvasgl.h"

#include <algorithm>

#include <GL/glew.h>

#include "windowcontextgl.h"

#include <QOpenGLWidget>
#include <QSurfaceFormat>

NBX_CLASS_IMPL(WindowCanvasGL, NBX::GLCanvas)

WindowCanvasGL::WindowCanvasGL(QOpenGLWidget * widget)
    : GLCanvas(1, 1, COLOR_BUFFER | DEPTH_BUFFER | STENCIL_BUFFER), widget_(widget) {}

WindowCanvasGL::~WindowCanvasGL() {
    destroy();
}

void WindowCanvasGL::prepareWidget(QOpenGLWidget * widget) {
    QSurfaceFormat format;
    format.setRenderableType(QSurfaceFormat::OpenGL);
    format.setProfile(QSurfaceFormat::CompatibilityProfile);
    format.setVersion(2, 1);
    format.setDepthBufferSize(24);
    format.setStencilBufferSize(8);
    // What is transparent in the scene shall not show what lies behind the window.
    format.setAlphaBufferSize(0);
    widget->setFormat(format);
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
