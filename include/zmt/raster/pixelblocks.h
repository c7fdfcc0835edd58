#pragma once

#include <nbx/object/so.h>

namespace NBX {
class Image;
}

namespace ZMT::RASTER {

class TiledGeoImage;

/// A rectangle between pixel edges: pixel i goes from i to i + 1.
struct PixelWindow {
    double minX = 0.0, minY = 0.0, maxX = 0.0, maxY = 0.0;
};

/// Copies and averages rectangles of images.
class PixelBlocks {
public:
    /// No image of more bytes is made to deliver pixels.
    static constexpr unsigned long long maxImageBytes = 1ULL << 31;

    /// True for sizes above 0 of which an image has at most `maxImageBytes`.
    static bool isImageSize(unsigned long long width, unsigned long long height, unsigned bytesPerPixel);

    /// Puts `source`, which lies at (`x`, `y`) of `target`, into it; what reaches beyond is left out. Layers
    /// and type of both are the same, which is checked.
    static void paste(const NBX::Image & source, long long x, long long y, NBX::Image & target);

    /// Fills the pixels from (`x`, `y`) on, `width` by `height`, with averages of the `window` of `source`,
    /// every source pixel weighted by the area of it that falls into the target's. Where there is alpha,
    /// colours are weighted by it, so that what is transparent does not colour its neighbours. Layers and
    /// type of both are the same, and the rectangle lies in `target`, which is checked.
    static void reduce(const NBX::Image & source, const PixelWindow & window, NBX::Image & target, int x,
                       int y, int width, int height);

    /// The `window` of `source`, which lies inside it, averaged to `width` by `height` pixels. Reads pieces
    /// of about a million pixels, and where one pixel of the result stands for more, the middle ones of them.
    /// Null where nothing is stored and where reading failed.
    static NBX::SO<NBX::Image> read(const TiledGeoImage & source, const PixelWindow & window, unsigned width,
                                    unsigned height);
};

} // namespace ZMT::RASTER
