#include <nbx/image/decoratedimage.h>

#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_CLASS_IMPL(DecoratedImage, Image)

DecoratedImage::DecoratedImage(Image * master)
    : Image(master ? master->layerSequence() : LS_Luminance,
            master ? master->dataType() : static_cast<int>(UInt8)),
      master_(master) {
    NBX_CHECK(master, L"no image");
}

MemoryLayout DecoratedImage::memoryLayout() const {
    return master_ ? master_->memoryLayout() : ML_Interleaved;
}

const void * DecoratedImage::lineComponents(int y) const {
    NBX_CHECK(master_, L"no image");
    return master_ ? static_cast<const Image &>(*master_).lineComponents(y) : nullptr;
}

const void * DecoratedImage::pixelComponents(int x, int y, int layer) const {
    NBX_CHECK(master_, L"no image");
    return master_ ? static_cast<const Image &>(*master_).pixelComponents(x, y, layer) : nullptr;
}

void DecoratedImage::flip(bool alongX, bool alongY) {
    if (master_) master_->flip(alongX, alongY);
}

SO<Image> DecoratedImage::uncompressed(bool ownCopy) {
    return master_ ? master_->uncompressed(ownCopy) : SO<Image>();
}

std::vector<SO<Image>> DecoratedImage::createMipmapPyramid() {
    return master_ ? master_->createMipmapPyramid() : std::vector<SO<Image>>();
}

} // namespace NBX
