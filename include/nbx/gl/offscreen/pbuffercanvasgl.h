#pragma once

#include <nbx/gl/context/glcanvas.h>

namespace NBX {

class Texture2DGL;

/// A canvas without a window that draws into a pixel buffer, and whose picture can become a texture.
class PBufferCanvasGL : public GLCanvas {
    NBX_CLASS(PBufferCanvasGL, GLCanvas)
public:
    /// A property besides those of `GLCanvas`: colours are floats of 16 bits, which are not cut to 0 to 1.
    static constexpr unsigned FLOAT_BUFFER = 32;

    /// `properties` are joined values of `GLCanvas::Property` and `FLOAT_BUFFER`. All contexts share their
    /// objects, so `shareWith` is not needed for that and may be null. With `largestPossible` a size above
    /// `maxSize()` is cut to it instead of failing. Textures made of the picture have the internal format
    /// `textureFormat` and the target `textureTarget`, which is GL_TEXTURE_2D.
    PBufferCanvasGL(unsigned width, unsigned height,
                    unsigned properties = COLOR_BUFFER | DEPTH_BUFFER | ALPHA_BUFFER | STENCIL_BUFFER,
                    GLCanvas * shareWith = nullptr, bool largestPossible = false,
                    unsigned textureFormat = 0x1908, unsigned textureTarget = 0x0DE1);
    ~PBufferCanvasGL() override;

    /// True when this process can make such canvases; with `FLOAT_BUFFER` among the joined `properties`, when
    /// the platform has floats for them.
    static bool isSupported(unsigned properties = COLOR_BUFFER);

    unsigned maxSize() const override;

    /// A texture of the canvas's size with the picture of the last `redisplay`. `format` is its internal
    /// format, 0 for `textureFormat`; with `mipmaps` it is minified through a pyramid of mipmaps. Null
    /// without a context.
    SO<Texture2DGL> newTexture(unsigned format, bool mipmaps);
    /// Gives a texture that `newTexture` made the picture of the last `redisplay`. False when there is no
    /// context or the texture has another size.
    bool updateTexture(Texture2DGL * texture);

protected:
    SO<ContextGL> createContext() override;
    bool createBuffers() override;
    bool resizeBuffers(unsigned width, unsigned height) override;

private:
    bool largestPossible_;
    unsigned textureFormat_;
};

} // namespace NBX
