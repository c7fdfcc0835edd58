#include "borderedtexture.h"

#include <nbx/image/memoryimage.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(BorderedTexture, NBX::ImageTexture2DGL)

namespace {

/// The layers with alpha that stand for those of `image`; the same where there is nothing to add.
NBX::LayerSequence withAlpha(const NBX::Image & image) {
    if (image.dataType() == NBX::Image::Half || image.dataType() == NBX::Image::Float)
        return image.layerSequence();
    switch (image.layerSequence()) {
    case NBX::LS_Luminance:
        return NBX::LS_LuminanceAlpha;
    case NBX::LS_RGB:
        return NBX::LS_RGBA;
    case NBX::LS_BGR:
        return NBX::LS_BGRA;
    default:
        return image.layerSequence();
    }
}

NBX::SO<NBX::Image> imageWithAlpha(const NBX::SO<NBX::Image> & image) {
    const NBX::LayerSequence layers = withAlpha(*image);
    if (layers == image->layerSequence()) return image;
    const NBX::SO<NBX::Image> result(
        new NBX::MemoryImage(image->width(), image->height(), layers, image->dataType()));
    return result->copy(image.get()) ? result : image;
}

} // namespace

BorderedTexture::BorderedTexture(const NBX::SO<NBX::Image> & image)
    : ImageTexture2DGL(imageWithAlpha(image), WM_Repeat, WM_Repeat),
      channels_(NBX::ImageTexture2DGL(image).channels()) {
    setWrap(WM_ClampToBorder);
    setBorderColor(NBX::Color(1.0F, 1.0F, 1.0F, 0.0F));
    unrefImageAfterBinding();
}

BorderedTexture::~BorderedTexture() = default;

} // namespace ZMT::CORE
