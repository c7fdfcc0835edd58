#pragma once

#include <nbx/gl/context/contextgl.h>

class QOpenGLWidget;

/// The context of a widget, which the window system made.
class WindowContextGL : public NBX::ContextGL {
    NBX_CLASS(WindowContextGL, NBX::ContextGL)
public:
    /// The widget's context exists, and outlives this object or its `destroy`.
    explicit WindowContextGL(QOpenGLWidget * widget);

    bool isCreated() const override { return widget_ != nullptr; }
    void destroy() override;
    bool makeCurrent() override;
    /// Where the widget's context was current before, as it is while a widget paints, it stays so.
    void release() override;
    /// The widget itself follows its size.
    bool resize(unsigned, unsigned) override { return true; }

    /// Whether the display has contexts for such widgets, which must not be made where it has none.
    static bool isSupported();
    /// Lets the widget ask for a context that the engine can use.
    static void prepareWidget(QOpenGLWidget * widget);

private:
    QOpenGLWidget * widget_;
    bool wasCurrent_ = false;
};
