#include "windowcontextgl.h"

#include <QOpenGLContext>
#include <QOpenGLWidget>

NBX_CLASS_IMPL(WindowContextGL, NBX::ContextGL)

WindowContextGL::WindowContextGL(QOpenGLWidget * widget) : widget_(widget) {}

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
