#include <zmt/raster/decoratedtiledgeoimage.h>

#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(DecoratedTiledGeoImage, TiledGeoImage)

DecoratedTiledGeoImage::DecoratedTiledGeoImage(TiledGeoImage * image) : image_(image) {
    NBX_CHECK(image, L"no image");
}

DecoratedTiledGeoImage::~DecoratedTiledGeoImage() = default;

unsigned DecoratedTiledGeoImage::bands() const {
    return image_ ? image_->bands() : 1;
}

double DecoratedTiledGeoImage::minX() const {
    return image_ ? image_->minX() : 0.0;
}

double DecoratedTiledGeoImage::minY() const {
    return image_ ? image_->minY() : 0.0;
}

double DecoratedTiledGeoImage::pixelSizeX() const {
    return image_ ? image_->pixelSizeX() : 1.0;
}

double DecoratedTiledGeoImage::pixelSizeY() const {
    return image_ ? image_->pixelSizeY() : 1.0;
}

std::uint64_t DecoratedTiledGeoImage::pixelsX() const {
    return image_ ? image_->pixelsX() : 0;
}

std::uint64_t DecoratedTiledGeoImage::pixelsY() const {
    return image_ ? image_->pixelsY() : 0;
}

NBX::SO<NBX::Image> DecoratedTiledGeoImage::createEmptyImage(unsigned width, unsigned height) const {
    return image_ ? image_->createEmptyImage(width, height) : TiledGeoImage::createEmptyImage(width, height);
}

NBX::SO<NBX::Image> DecoratedTiledGeoImage::getImage(int x, int y, unsigned width, unsigned height) const {
    return image_ ? image_->getImage(x, y, width, height) : nullptr;
}

unsigned DecoratedTiledGeoImage::granularityX() const {
    return image_ ? image_->granularityX() : 1;
}

unsigned DecoratedTiledGeoImage::granularityY() const {
    return image_ ? image_->granularityY() : 1;
}

bool DecoratedTiledGeoImage::failed() const {
    return image_ && image_->failed();
}

} // namespace ZMT::RASTER
