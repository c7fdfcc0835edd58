#include <zmt/util/compressedtexture/virtualtiledgeoimage.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>
#include <zmt/raster/pixelblocks.h>

namespace ZMT::UTIL {

NBX_CLASS_IMPL(VirtualTiledGeoImage, NBX::SharedObj)

namespace {

unsigned halved(unsigned size, unsigned times) {
    for (; times > 0 && size > 1; --times)
        size = RASTER::PixelBlocks::halved(size);
    return size;
}

} // namespace

VirtualTiledGeoImage::VirtualTiledGeoImage(unsigned width, unsigned height, const NBX::Bounds & extent,
                                           unsigned tileSize)
    : width_(width), height_(height), tileSize_(tileSize), extent_(extent) {
    NBX_CHECK(width > 0 && height > 0 && tileSize > 0, L"an image without pixels");
    const bool hasArea = extent.isDefined() && extent.diagonal().x > 0.0 && extent.diagonal().y > 0.0;
    NBX_CHECK(hasArea, L"the extent of an image has no area");
}

unsigned VirtualTiledGeoImage::levels() const {
    if (tileSize_ == 0) return 0;
    unsigned result = 1;
    for (unsigned size = std::max(width_, height_); size > tileSize_; ++result)
        size = RASTER::PixelBlocks::halved(size);
    return result;
}

unsigned VirtualTiledGeoImage::pixelsX(unsigned level) const {
    return halved(width_, level);
}

unsigned VirtualTiledGeoImage::pixelsY(unsigned level) const {
    return halved(height_, level);
}

} // namespace ZMT::UTIL
