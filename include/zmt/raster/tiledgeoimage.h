#pragma once

#include <cstdint>

#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>
#include <zmt/raster/geoextent.h>

namespace NBX {
class Image;
}

namespace ZMT::RASTER {

class GeoImage;

/// A rectangle of pixels; column 0 is the western one, line 0 the southern one.
struct PixelRect {
    std::int64_t x = 0, y = 0;
    std::uint64_t width = 0, height = 0;
    bool isEmpty() const { return width == 0 || height == 0; }
};

/// An image in map coordinates that is read in rectangles, so that it need not fit into memory. Size and
/// extent may be asked for from any thread; one thread at a time reads pixels.
class TiledGeoImage : public NBX::SharedObj {
    NBX_CLASS(TiledGeoImage, NBX::SharedObj)
public:
    /// Number of layers of a pixel.
    virtual unsigned bands() const = 0;
    /// The outer edge of the first pixel (not its centre).
    virtual double minX() const = 0;
    virtual double minY() const = 0;
    /// Size of a pixel in map units, above 0.
    virtual double pixelSizeX() const = 0;
    virtual double pixelSizeY() const = 0;
    /// Size of the image in pixels.
    virtual std::uint64_t pixelsX() const = 0;
    virtual std::uint64_t pixelsY() const = 0;
    /// A blank image of the type and layers that `getImage` delivers. As it stands: one 8-bit layer of
    /// luminance for one band, RGBA for any other number. Null for a size that no image can have.
    virtual NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const;
    /// The pixels of a rectangle, which may reach beyond the image and is blank there. Null where nothing
    /// is stored in the rectangle, and where reading failed.
    virtual NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const = 0;
    /// Size of the tiles in which the image is stored, in pixels: what is read at once at no extra cost.
    virtual unsigned granularityX() const { return 1; }
    virtual unsigned granularityY() const { return 1; }
    /// True once pixels could not be read, which tells that from a rectangle in which nothing is stored.
    virtual bool failed() const { return false; }

    /// The outer edge of the last pixel.
    double maxX() const { return minX() + static_cast<double>(pixelsX()) * pixelSizeX(); }
    double maxY() const { return minY() + static_cast<double>(pixelsY()) * pixelSizeY(); }
    /// Outer edges.
    GeoExtent extent() const { return {minX(), minY(), maxX(), maxY()}; }

    /// The pixels of the image that a box in map coordinates touches; empty where it misses the image or is
    /// no box.
    PixelRect pixelRect(double minX, double minY, double maxX, double maxY) const;

    /// The part of the image in a box: whole pixels of the image, clipped to it. With a size above 0 the
    /// result has at most `width` by `height` pixels: where there are more, it is their average, and where
    /// there is room for it, one more pixel on each side is delivered for filters. With the size 0 pixels
    /// are delivered as they are. Null where nothing lies there, where reading failed and for sizes that no
    /// image can have. Memory: the result, and a piece of about a million pixels.
    NBX::SO<GeoImage> getGeoImage(double minX, double minY, double maxX, double maxY, unsigned width,
                                  unsigned height) const;
};

} // namespace ZMT::RASTER
