#pragma once

#include <nbx/image/fileimage.h>

namespace ZMT::CORE {

/// The pixels of one resolution of a `LODTexture`, 8 bits a component, in a temporary file.
///
/// Stored attributes: "rawSize", "rawData" (the pixels line by line from the bottom, 1 to 4 layers), "data"
/// (an image, read in the place of raw data), "dummy" (true for an image without pixels), "sizeX", "sizeY".
/// What does not fit together when read leaves an image without pixels.
class LODTexture_Image : public NBX::Image {
    NBX_STORED_CLASS(LODTexture_Image, NBX::Image)
public:
    /// `source` scaled to `width` by `height`; a null one leaves no pixels.
    LODTexture_Image(const NBX::Image * source, int width, int height);
    ~LODTexture_Image() override;

    int width() const override { return static_cast<int>(sizeX_); }
    int height() const override { return static_cast<int>(sizeY_); }
    using Image::lineComponents;
    const void * lineComponents(int y) const override;
    using Image::pixelComponents;
    const void * pixelComponents(int x, int y, int component = 0) const override;

    void serialize(NBX::SerializationManager & m) override;

protected:
    LODTexture_Image();

private:
    void allocate(std::uint64_t width, std::uint64_t height, NBX::LayerSequence sequence);
    void take(const NBX::Image * source, int width, int height);
    void setRawData(const std::vector<unsigned char> & data, std::uint64_t width, std::uint64_t height);

    NBX::SO<NBX::FileImage> pixels_; ///< null without pixels
    unsigned sizeX_ = 0, sizeY_ = 0;
};

} // namespace ZMT::CORE
