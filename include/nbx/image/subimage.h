#pragma once

#include <nbx/image/image.h>

namespace NBX {

class Area;

/// A rectangle of another image, which it keeps alive: both share their pixels.
class SubImage : public Image {
    NBX_CLASS(SubImage, Image)
public:
    /// `area` is in pixels of `image`, y upwards from the bottom line. One that reaches beyond the image is
    /// reported and clipped.
    SubImage(Image * image, const Area & area);

    int width() const override { return width_; }
    int height() const override { return height_; }
    int padding() const override;
    bool isWritable() const override { return image_ && image_->isWritable(); }
    using Image::lineComponents;
    const void * lineComponents(int y) const override;

private:
    SO<Image> image_;
    int x_ = 0, y_ = 0, width_ = 0, height_ = 0;
};

} // namespace NBX
