#pragma once

#include <nbx/image/image.h>

namespace NBX {

/// Stands for a whole other image, its master, to which subclasses add what they know about it.
class DecoratedImage : public Image {
    NBX_CLASS(DecoratedImage, Image)
public:
    /// A null `master` is reported; the image is then empty.
    explicit DecoratedImage(Image * master);

    const SO<Image> & master() const { return master_; }

    int width() const override { return master_ ? master_->width() : 0; }
    int height() const override { return master_ ? master_->height() : 0; }
    MemoryLayout memoryLayout() const override;
    int alignment() const override { return master_ ? master_->alignment() : 1; }
    int padding() const override { return master_ ? master_->padding() : 0; }
    bool isWritable() const override { return master_ && master_->isWritable(); }
    using Image::lineComponents;
    const void * lineComponents(int y) const override;
    using Image::pixelComponents;
    const void * pixelComponents(int x, int y, int layer = 0) const override;
    void flip(bool alongX, bool alongY) override;
    SO<Image> uncompressed(bool ownCopy) override;
    std::vector<SO<Image>> createMipmapPyramid() override;

private:
    SO<Image> master_;
};

} // namespace NBX
