#include <zmt/raster/tiledgeoimage.h>

#include <algorithm>
#include <cmath>

#include <zmt/raster/geoimage.h>
#include <zmt/raster/pixelblocks.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(TiledGeoImage, NBX::SharedObj)

namespace {

/// Boxes are computed from positions of pixels: their edges are taken as exact up to this part of a pixel.
constexpr double edgeTolerance = 1e-6;

struct PixelSpan {
    double first = 0.0, count = 0.0;
};

/// The pixels that an interval, in pixels from the image's edge, touches.
PixelSpan touched(double low, double high, double pixels) {
    if (!(low < high) || !(high > 0.0) || !(low < pixels) || !(pixels > 0.0)) return {};
    const double first = std::clamp(std::floor(low + edgeTolerance), 0.0, pixels - 1.0);
    const double end = std::clamp(std::ceil(high - edgeTolerance), first + 1.0, pixels);
    return {first, end - first};
}

/// One more pixel on each side where image and wanted size have room for it.
void widen(std::int64_t & first, std::uint64_t & count, std::uint64_t pixels, unsigned wanted) {
    if (first > 0 && count < wanted) {
        --first;
        ++count;
    }
    if (static_cast<std::uint64_t>(first) + count < pixels && count < wanted) ++count;
}

} // namespace

NBX::SO<NBX::Image> TiledGeoImage::createEmptyImage(unsigned width, unsigned height) const {
    return PixelBlocks::newImage(width, height, bands() == 1 ? NBX::LS_Luminance : NBX::LS_RGBA,
                                 NBX::Image::UInt8);
}

PixelRect TiledGeoImage::pixelRect(double minX, double minY, double maxX, double maxY) const {
    const PixelSpan x = touched((minX - this->minX()) / pixelSizeX(), (maxX - this->minX()) / pixelSizeX(),
                                static_cast<double>(pixelsX()));
    const PixelSpan y = touched((minY - this->minY()) / pixelSizeY(), (maxY - this->minY()) / pixelSizeY(),
                                static_cast<double>(pixelsY()));
    if (x.count == 0.0 || y.count == 0.0) return {};
    return {static_cast<std::int64_t>(x.first), static_cast<std::int64_t>(y.first),
            static_cast<std::uint64_t>(x.count), static_cast<std::uint64_t>(y.count)};
}

NBX::SO<GeoImage> TiledGeoImage::getGeoImage(double minX, double minY, double maxX, double maxY,
                                             unsigned width, unsigned height) const {
    PixelRect rect = pixelRect(minX, minY, maxX, maxY);
    if (rect.isEmpty()) return nullptr;
    if (width > 0) widen(rect.x, rect.width, pixelsX(), width);
    if (height > 0) widen(rect.y, rect.height, pixelsY(), height);
    const std::uint64_t columns = width > 0 ? std::min<std::uint64_t>(rect.width, width) : rect.width;
    const std::uint64_t rows = height > 0 ? std::min<std::uint64_t>(rect.height, height) : rect.height;
    const auto x = static_cast<double>(rect.x), y = static_cast<double>(rect.y);
    const auto w = static_cast<double>(rect.width), h = static_cast<double>(rect.height);
    if (!PixelBlocks::isImageSize(columns, rows, 1) || x + w > INT32_MAX || y + h > INT32_MAX) return nullptr;
    const NBX::SO<NBX::Image> image = PixelBlocks::read(
        *this, {x, y, x + w, y + h}, static_cast<unsigned>(columns), static_cast<unsigned>(rows));
    if (!image) return nullptr;
    const double stepX = w / static_cast<double>(columns), stepY = h / static_cast<double>(rows);
    return GeoImage::fromOrigin(image.get(), this->minX() + (x + 0.5 * stepX) * pixelSizeX(),
                                this->minY() + (y + 0.5 * stepY) * pixelSizeY(), stepX * pixelSizeX(),
                                stepY * pixelSizeY());
}

} // namespace ZMT::RASTER
