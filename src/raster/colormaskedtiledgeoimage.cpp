#include <zmt/raster/colormaskedtiledgeoimage.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(ColorMaskedTiledGeoImage, TiledGeoImage)

ColorMaskedTiledGeoImage::ColorMaskedTiledGeoImage(TiledGeoImage * image, const NBX::Color & maskColor)
    : image_(image), maskColor_(maskColor) {
    NBX_CHECK(image, L"no image");
}

double ColorMaskedTiledGeoImage::minX() const {
    return image_ ? image_->minX() : 0.0;
}

double ColorMaskedTiledGeoImage::minY() const {
    return image_ ? image_->minY() : 0.0;
}

double ColorMaskedTiledGeoImage::pixelSizeX() const {
    return image_ ? image_->pixelSizeX() : 1.0;
}

double ColorMaskedTiledGeoImage::pixelSizeY() const {
    return image_ ? image_->pixelSizeY() : 1.0;
}

std::uint64_t ColorMaskedTiledGeoImage::pixelsX() const {
    return image_ ? image_->pixelsX() : 0;
}

std::uint64_t ColorMaskedTiledGeoImage::pixelsY() const {
    return image_ ? image_->pixelsY() : 0;
}

unsigned ColorMaskedTiledGeoImage::granularityX() const {
    return image_ ? image_->granularityX() : 1;
}

unsigned ColorMaskedTiledGeoImage::granularityY() const {
    return image_ ? image_->granularityY() : 1;
}

bool ColorMaskedTiledGeoImage::failed() const {
    return image_ && image_->failed();
}

NBX::SO<NBX::Image> ColorMaskedTiledGeoImage::getImage(int x, int y, unsigned width, unsigned height) const {
    return image_ ? masked(image_->getImage(x, y, width, height).get(), maskColor_) : nullptr;
}

NBX::SO<NBX::Image> ColorMaskedTiledGeoImage::masked(const NBX::Image * image, const NBX::Color & maskColor) {
    if (!image) return nullptr;
    NBX::SO<NBX::Image> result(new NBX::MemoryImage(image->width(), image->height(), NBX::LS_RGBA));
    if (!result->copy(image)) return nullptr;
    std::uint8_t mask[3];
    for (unsigned i = 0; i < 3; ++i)
        mask[i] = static_cast<std::uint8_t>(std::lround(255.0F * std::clamp(maskColor[i], 0.0F, 1.0F)));
    for (int y = 0; y < result->height(); ++y) {
        unsigned char * pixel = result->lineComponentsU8(y);
        for (int x = 0; x < result->width(); ++x, pixel += 4)
            if (std::equal(mask, mask + 3, pixel)) std::fill_n(pixel, 4, 0);
    }
    return result;
}

} // namespace ZMT::RASTER
