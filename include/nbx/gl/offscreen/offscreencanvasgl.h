#pragma once

#include <memory>

#include <nbx/gl/context/glcanvas.h>

namespace NBX {

/// A canvas without a window that draws into a frame buffer object, which may be larger than a pixel buffer.
class OffscreenCanvasGL : public GLCanvas {
    NBX_CLASS(OffscreenCanvasGL, GLCanvas)
public:
    /// In pixels, with all properties but `DOUBLE_BUFFER`. The context exists afterwards unless a report was
    /// made. All contexts share their objects, so `shareWith` is not needed for that and may be null.
    OffscreenCanvasGL(unsigned width, unsigned height, GLCanvas * shareWith = nullptr);
    ~OffscreenCanvasGL() override;

    /// True when this process can make contexts. Whether their driver has frame buffer objects shows when the
    /// canvas is made.
    static bool isSupported();

    unsigned maxSize() const override;
    unsigned frameBuffer() const override;

protected:
    SO<ContextGL> createContext() override;
    bool createBuffers() override;
    void destroyBuffers() override;
    bool resizeBuffers(unsigned width, unsigned height) override;

private:
    struct Buffers;
    std::unique_ptr<Buffers> buffers_;
    unsigned maxSize_ = 0;
};

} // namespace NBX
