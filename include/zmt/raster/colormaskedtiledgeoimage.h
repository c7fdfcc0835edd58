#pragma once

#include <nbx/math/color.h>
#include <zmt/raster/decoratedtiledgeoimage.h>

namespace ZMT::RASTER {

/// Another image, of which the pixels of one colour are transparent: delivers RGBA of 8 bits. The colour is
/// compared as 8-bit numbers, whatever the alpha. One thread at a time reads.
class ColorMaskedTiledGeoImage : public DecoratedTiledGeoImage {
    NBX_CLASS(ColorMaskedTiledGeoImage, DecoratedTiledGeoImage)
public:
    /// A null image is reported.
    ColorMaskedTiledGeoImage(TiledGeoImage * image, const NBX::Color & maskColor);

    const NBX::Color & maskColor() const { return maskColor_; }

    unsigned bands() const override { return 4; }
    NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override;
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;

    /// A copy of `image` as RGBA of 8 bits in which pixels of the colour are transparent. Null for null.
    static NBX::SO<NBX::Image> masked(const NBX::Image * image, const NBX::Color & maskColor);

private:
    NBX::Color maskColor_;
};

} // namespace ZMT::RASTER
