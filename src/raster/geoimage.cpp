#include <zmt/raster/geoimage.h>

#include <cmath>

#include <nbx/object/errorhandler.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(GeoImage, NBX::DecoratedImage)

namespace {

double pixelSize(double low, double high, int pixels) {
    if (pixels > 1) return (high - low) / (pixels - 1);
    return high > low ? high - low : 1.0;
}

} // namespace

GeoImage::GeoImage(NBX::Image * image, double minX, double maxX, double minY, double maxY)
    : NBX::DecoratedImage(image), minX_(minX), minY_(minY), maxX_(maxX), maxY_(maxY),
      pixelSizeX_(pixelSize(minX, maxX, width())), pixelSizeY_(pixelSize(minY, maxY, height())) {
    const bool isExtent =
        minX <= maxX && minY <= maxY && std::isfinite(maxX - minX) && std::isfinite(maxY - minY);
    NBX_CHECK(isExtent, L"the extent of an image is reversed or not finite");
}

NBX::SO<GeoImage> GeoImage::fromOrigin(NBX::Image * image, double minX, double minY, double pixelSizeX,
                                       double pixelSizeY) {
    const auto end = [](double low, double size, int pixels) { return low + size * std::max(0, pixels - 1); };
    NBX::SO<GeoImage> result(new GeoImage(image, minX, end(minX, pixelSizeX, image ? image->width() : 0),
                                          minY, end(minY, pixelSizeY, image ? image->height() : 0)));
    result->pixelSizeX_ = pixelSizeX;
    result->pixelSizeY_ = pixelSizeY;
    return result;
}

} // namespace ZMT::RASTER
