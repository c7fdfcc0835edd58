#pragma once

#include <nbx/gl/texture/texturegl.h>

namespace NBX {

/// A two-dimensional texture whose texels are made on the graphics card: a render target, or a copy of a
/// frame buffer. It starts with undefined texels.
class Texture2DGL : public TextureGL {
    NBX_CLASS(Texture2DGL, TextureGL)
public:
    /// Formats for heights and the like, by OpenGL's own numbers.
    enum InternalFormat { IF_Luminance32F = 0x8818, IF_Luminance16F = 0x881E };

    /// In texels, with an internal format such as GL_RGBA8, GL_RGBA32F_ARB or GL_DEPTH_COMPONENT24. With
    /// `mipmaps` it is minified through them; whoever changes the texels calls `contentChanged`. Otherwise it
    /// is minified linearly. The edges are clamped.
    Texture2DGL(unsigned width, unsigned height, unsigned internalFormat, bool mipmaps = false);
    ~Texture2DGL() override;

    unsigned getWidth() const { return width_; }
    unsigned getHeight() const { return height_; }
    /// 0 where the image decides.
    unsigned getInternalFormat() const { return internalFormat_; }
    /// For the next time that the texels are sent.
    void setInternalFormat(unsigned internalFormat);

    unsigned target() const override;
    Channels channels() const override;

    /// Tells that the largest level was drawn or copied into; mipmaps are made anew by the next `bind`.
    void contentChanged();

protected:
    Texture2DGL(bool enabled);
    void setTextureSize(unsigned width, unsigned height) const;

    bool needsUpload() const override;
    bool upload(EngineGL * engine, bool isNew, bool withMipmaps) const override;
    unsigned textureWidth() const override { return width_; }
    unsigned textureHeight() const override { return height_; }

    /// Values of `Channels` for an internal format.
    static Channels channelsOf(unsigned internalFormat);

private:
    mutable unsigned width_ = 0, height_ = 0;
    unsigned internalFormat_ = 0;
    mutable bool contentChanged_ = false;
};

} // namespace NBX
