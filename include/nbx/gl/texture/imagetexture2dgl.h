#pragma once

#include <cstdint>

#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/image/image.h>

namespace NBX {

/// A two-dimensional texture of an image. The image is sent by the first `bind` and again whenever it was
/// modified. Sizes need not be powers of two; an image that is too large for the driver is reduced.
///
/// Mipmaps of compressed images are those of `Image::createMipmapPyramid`, others are made by the driver.
///
/// Stored attributes: "image" (default null), "internalFormat" (0), "unrefImageAfterBinding" (false).
class ImageTexture2DGL : public Texture2DGL {
    NBX_STORED_CLASS(ImageTexture2DGL, Texture2DGL)
public:
    /// With the filters `FM_LinearMipmapLinear` and `FM_Linear`, repeated. A null image gives one white
    /// texel.
    explicit ImageTexture2DGL(SO<Image> image);
    /// `internalFormat` 0 leaves the choice to the image's layers and type.
    ImageTexture2DGL(SO<Image> image, WrapMode wrapS, WrapMode wrapT,
                     FilterMode minFilter = FM_LinearMipmapLinear, FilterMode magFilter = FM_Linear,
                     double anisotropy = 1.0, const Matrix4x4Base<double> & matrix = Matrix4x4Base<double>(),
                     const Color & borderColor = Color(0.0F, 0.0F, 0.0F, 0.0F), unsigned internalFormat = 0,
                     bool unrefImageAfterBinding = false);
    ~ImageTexture2DGL() override;

    /// Null when there is none, or it was let go.
    SO<Image> getImage() const { return image_; }
    void setImage(SO<Image> image);
    /// The image leaves main memory once the driver has it.
    void unrefImageAfterBinding(bool unref = true);
    bool unrefsImageAfterBinding() const { return unrefImage_; }

    Channels channels() const override;
    void serialize(SerializationManager & m) override;

protected:
    ImageTexture2DGL();

    bool needsUpload() const override;
    bool upload(EngineGL * engine, bool isNew, bool withMipmaps) const override;
    bool generateMipmaps(EngineGL * engine) const override;

private:
    bool uploadCompressed(bool withMipmaps) const;
    void takeImage();

    mutable SO<Image> image_;
    Channels channels_ = C_RGBA; ///< of the last image
    mutable bool uploadedCompressed_ = false;
    mutable std::uint64_t uploadedTransaction_ = 0;
    mutable bool uploaded_ = false;
    bool unrefImage_ = false;
};

} // namespace NBX
