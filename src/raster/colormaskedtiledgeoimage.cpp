#include <zmt/raster/colormaskedtiledgeoimage.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <nbx/image/memoryimage.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(ColorMaskedTiledGeoImage, DecoratedTiledGeoImage)

ColorMaskedTiledGeoImage::ColorMaskedTiledGeoImage(TiledGeoImage * image, const NBX::Color & maskColor)
    : DecoratedTiledGeoImage(image), maskColor_(maskColor) {}

NBX::SO<NBX::Image> ColorMaskedTiledGeoImage::createEmptyImage(unsigned width, unsigned height) const {
    // Masked pixels have an alpha channel, whatever those of the image have.
    return TiledGeoImage::createEmptyImage(width, height); // NOLINT(bugprone-parent-virtual-call)
}

NBX::SO<NBX::Image> ColorMaskedTiledGeoImage::getImage(int x, int y, unsigned width, unsigned height) const {
    return masked(DecoratedTiledGeoImage::getImage(x, y, width, height).get(), maskColor_);
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
