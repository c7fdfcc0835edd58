#include "memorytiledgeoimage.h"

#include <algorithm>
#include <cmath>

#include <nbx/object/errorhandler.h>
#include <zmt/raster/pixelblocks.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(MemoryTiledGeoImage, TiledGeoImage)

MemoryTiledGeoImage::MemoryTiledGeoImage(NBX::Image * image, const GeoExtent & extent)
    : image_(image), extent_(extent) {
    NBX_CHECK(image, L"no image");
    const bool hasArea = extent.minX < extent.maxX && extent.minY < extent.maxY;
    NBX_CHECK(hasArea, L"the extent of an image has no area");
}

unsigned MemoryTiledGeoImage::bands() const {
    return image_ ? static_cast<unsigned>(image_->numberOfLayers()) : 1;
}

double MemoryTiledGeoImage::pixelSizeX() const {
    return (extent_.maxX - extent_.minX) / static_cast<double>(std::max<std::uint64_t>(1, pixelsX()));
}

double MemoryTiledGeoImage::pixelSizeY() const {
    return (extent_.maxY - extent_.minY) / static_cast<double>(std::max<std::uint64_t>(1, pixelsY()));
}

std::uint64_t MemoryTiledGeoImage::pixelsX() const {
    return image_ ? static_cast<std::uint64_t>(std::max(0, image_->width())) : 0;
}

std::uint64_t MemoryTiledGeoImage::pixelsY() const {
    return image_ ? static_cast<std::uint64_t>(std::max(0, image_->height())) : 0;
}

NBX::SO<NBX::Image> MemoryTiledGeoImage::createEmptyImage(unsigned width, unsigned height) const {
    if (!image_) return TiledGeoImage::createEmptyImage(width, height);
    return PixelBlocks::newImage(width, height, image_->layerSequence(), image_->dataType());
}

NBX::SO<NBX::Image> MemoryTiledGeoImage::getImage(int x, int y, unsigned width, unsigned height) const {
    const auto w = static_cast<std::int64_t>(pixelsX()), h = static_cast<std::int64_t>(pixelsY());
    if (x >= w || y >= h || x + static_cast<std::int64_t>(width) <= 0 ||
        y + static_cast<std::int64_t>(height) <= 0)
        return nullptr;
    NBX::SO<NBX::Image> result = createEmptyImage(width, height);
    if (result) PixelBlocks::paste(*image_, -static_cast<long long>(x), -static_cast<long long>(y), *result);
    return result;
}

} // namespace ZMT::RASTER
