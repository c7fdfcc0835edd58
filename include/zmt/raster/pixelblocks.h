#pragma once

#include <cstdint>
#include <functional>

#include <nbx/image/image.h>
#include <nbx/object/so.h>

namespace ZMT::RASTER {

class TiledGeoImage;
struct PixelRect;

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

    /// A blank image; null for a size of which no image is made.
    static NBX::SO<NBX::Image> newImage(unsigned long long width, unsigned long long height,
                                        NBX::LayerSequence layers, int dataType);

    /// Size of an image that is halved: what is left over makes a pixel of its own.
    static constexpr unsigned halved(unsigned size) { return size / 2 + size % 2; }

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

    /// For `TiledGeoImage::getImage` of `image`, by what `read` delivers for the part of the rectangle that
    /// lies in the image; that may be null.
    static NBX::SO<NBX::Image> readInside(const TiledGeoImage & image, int x, int y, unsigned width,
                                          unsigned height,
                                          const std::function<NBX::SO<NBX::Image>(const PixelRect &)> & read);

    /// Gives the tile in a column and row, null where nothing is stored; false when it cannot be read.
    using TileReader = std::function<bool(std::int64_t column, std::int64_t row, NBX::SO<NBX::Image> & tile)>;
    /// For `TiledGeoImage::getImage` of `image`, which is stored in tiles of `tileX` by `tileY` pixels: put
    /// together from them. Null where nothing is stored, and where a tile cannot be read.
    static NBX::SO<NBX::Image> readTiles(const TiledGeoImage & image, int x, int y, unsigned width,
                                         unsigned height, unsigned tileX, unsigned tileY,
                                         const TileReader & read);
};

} // namespace ZMT::RASTER
