#pragma once

#include <nbx/gl/context/glcanvas.h>

class QOpenGLWidget;

/// The canvas of a widget: draws into the widget's frame buffer, when the widget paints. What is due makes
/// the widget paint.
class WindowCanvasGL : public NBX::GLCanvas {
    NBX_CLASS(WindowCanvasGL, NBX::GLCanvas)
public:
    /// `widget` outlives the canvas or its `destroy`. Its context is current when `create` is called.
    explicit WindowCanvasGL(QOpenGLWidget * widget);
    ~WindowCanvasGL() override;

    /// To be called when the widget paints. While redisplay is switched off it is put off.
    void paint();
    void redisplay() override;
    NBX::NBXTime nextTick(const NBX::NBXTime & lastTick) const override;

    unsigned maxSize() const override { return maxSize_; }
    unsigned frameBuffer() const override;
    /// Whether the pictures that off-screen canvases make can be drawn here.
    bool sharesWithOffscreenCanvases() const { return isShared_; }

protected:
    void serveRequest() override;
    NBX::SO<NBX::ContextGL> createContext() override;
    bool createBuffers() override;
    bool resizeBuffers(unsigned width, unsigned height) override;

private:
    QOpenGLWidget * widget_;
    unsigned maxSize_ = 0;
    bool isShared_ = false;
    bool isAwaited_ = false; ///< the widget was told to paint, and has not done so
};
