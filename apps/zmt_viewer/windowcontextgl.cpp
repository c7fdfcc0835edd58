#include "windowcontextgl.h"

#include <QOpenGLContext>
#include <QOpenGLWidget>
#include <QSurfaceFormat>

#include <GL/gl.h>

NBX_CLASS_IMPL(WindowContextGL, NBX::ContextGL)

namespace {

QSurfaceFormat surfaceFormat() {
    QSurfaceFormat format;
    format.setRenderableType(QSurfaceFormat::OpenGL);
    format.setProfile(QSurfaceFormat::CompatibilityProfile);
    format.setVersion(2, 1);
    format.setDepthBufferSize(24);
    format.setStencilBufferSize(8);
    return format;
}

} // namespace

WindowContextGL::WindowContextGL(QOpenGLWidget * widget) : widget_(widget) {}

bool WindowContextGL::isSupported() {
    QOpenGLContext context;
    context.setFormat(surfaceFormat());
    return context.create();
}

void WindowContextGL::prepareWidget(QOpenGLWidget * widget) {
    widget->setFormat(surfaceFormat());
    // What is transparent in the scene shall not show what lies behind the window, which the toolkit composes
    // by the alpha of the widget's frame buffer.
    widget->setTextureFormat(GL_RGB8);
}

void WindowContextGL::destroy() {
    release();
    widget_ = nullptr;
}

bool WindowContextGL::makeCurrent() {
    if (!widget_) return false;
    QOpenGLContext * context = widget_->context();
    if (!isCurrent()) wasCurrent_ = QOpenGLContext::currentContext() == context;
    // The widget would bind its frame buffer, also where another one is being drawn into.
    if (!wasCurrent_)
        widget_->makeCurrent();
    else if (!context->makeCurrent(context->surface()))
        return false;
    return enter();
}

void WindowContextGL::release() {
    if (!isCurrent()) return;
    leave();
    if (!wasCurrent_) widget_->doneCurrent();
}
