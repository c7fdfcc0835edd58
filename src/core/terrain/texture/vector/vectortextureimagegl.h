#pragma once

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/texture2dgl.h>

#include "vectorpicture.h"

namespace NBX {
class GLCanvas;
} // namespace NBX

namespace ZMT::CORE {

class VectorSamplesGL;

/// Makes the texture of what a canvas shows. The scene is blended on a transparent ground, so that its
/// colours come multiplied by their alpha; those of the texture, at all of its levels, are not. See
/// `VectorPicture`.
class VectorTextureImageGL {
public:
    /// Draws the root nodes of the canvas and gives the texture, of the canvas's size: a new one, or one from
    /// the pool. A canvas of pixel buffers is copied on the card, by a shader; of others, without shaders,
    /// and where the card is the processor, the picture is read back. Null without a context. `samples` is
    /// null, or was made for the canvas before its nodes were.
    static NBX::SO<NBX::Texture2DGL> draw(NBX::GLCanvas & canvas, unsigned format,
                                          const VectorSamplesGL * samples = nullptr);
    /// The same, but in place of one from the pool `before` is drawn anew where that can be: a texture that
    /// this gave earlier, or null.
    static NBX::SO<NBX::Texture2DGL> redraw(NBX::GLCanvas & canvas, unsigned format,
                                            const NBX::SO<NBX::Texture2DGL> & before,
                                            const VectorSamplesGL * samples = nullptr);

    /// The one to begin with.
    static unsigned usualFormat();
    /// Whether it is an internal format for colours with alpha.
    static bool isFormat(unsigned format);
    /// What a texel of such a format takes.
    static unsigned texelBytes(unsigned format);
    /// Whether other texels can take the place of those that it has.
    static bool canBeDrawnAgain(const NBX::Texture2DGL * texture);
    /// At first true. False: the software renderer is used like a card.
    static void allowSoftware(bool allow);
    /// Drops what the copies need.
    static void release();
};

/// A texture of which all levels are drawn, or sent anew each time.
class DrawnLevelsTextureGL : public NBX::Texture2DGL {
    NBX_CLASS(DrawnLevelsTextureGL, NBX::Texture2DGL)
public:
    DrawnLevelsTextureGL(unsigned width, unsigned height, unsigned internalFormat);
    ~DrawnLevelsTextureGL() override;

    unsigned levels() const;

protected:
    bool needsUpload() const override { return false; }
    /// Makes room for the texels.
    bool upload(NBX::EngineGL * engine, bool isNew, bool withMipmaps) const override;
    bool generateMipmaps(NBX::EngineGL *) const override { return true; }
};

/// A texture of which all levels are images. They are let go once the driver has them.
class ImageLevelsTextureGL : public NBX::ImageTexture2DGL {
    NBX_CLASS(ImageLevelsTextureGL, NBX::ImageTexture2DGL)
public:
    ImageLevelsTextureGL(const VectorPicture::Levels & levels, unsigned internalFormat);
    ~ImageLevelsTextureGL() override;

protected:
    bool upload(NBX::EngineGL * engine, bool isNew, bool withMipmaps) const override;
    bool generateMipmaps(NBX::EngineGL *) const override { return true; }

private:
    mutable VectorPicture::Levels levels_;
};

} // namespace ZMT::CORE
