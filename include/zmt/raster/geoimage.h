#pragma once

#include <nbx/image/decoratedimage.h>

namespace ZMT::RASTER {

/// An image and its place in map coordinates; its pixels are those of `master()`. The extent runs from the
/// centre of the first pixel (column 0, line 0, the south-western one) to the centre of the last.
class GeoImage : public NBX::DecoratedImage {
    NBX_CLASS(GeoImage, NBX::DecoratedImage)
public:
    /// Pixels lie `(maxX - minX) / (width - 1)` apart; a single column or line counts as one pixel of size
    /// `maxX - minX`, or 1 where that is 0. A null image, or an extent that is reversed or not finite, is
    /// reported.
    GeoImage(NBX::Image * image, double minX, double maxX, double minY, double maxY);
    /// An image of which the first pixel's centre and the pixel size are known.
    static NBX::SO<GeoImage> fromOrigin(NBX::Image * image, double minX, double minY, double pixelSizeX,
                                        double pixelSizeY);

    /// The image without its place; null when none was given.
    const NBX::SO<NBX::Image> & image() const { return master(); }

    double minX() const { return minX_; }
    double minY() const { return minY_; }
    double maxX() const { return maxX_; }
    double maxY() const { return maxY_; }
    double pixelSizeX() const { return pixelSizeX_; }
    double pixelSizeY() const { return pixelSizeY_; }

private:
    double minX_, minY_, maxX_, maxY_;
    double pixelSizeX_, pixelSizeY_;
};

} // namespace ZMT::RASTER
