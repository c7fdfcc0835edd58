#pragma once

#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::RASTER {

/// Another image, seen through this one: all is asked of it. Subclasses change what they are about. Without
/// one, which is reported, it is an image without pixels.
class DecoratedTiledGeoImage : public TiledGeoImage {
    NBX_CLASS(DecoratedTiledGeoImage, TiledGeoImage)
public:
    explicit DecoratedTiledGeoImage(TiledGeoImage * image);
    ~DecoratedTiledGeoImage() override;

    /// The image that is decorated; null when none was given.
    const NBX::SO<TiledGeoImage> & image() const { return image_; }

    unsigned bands() const override;
    double minX() const override;
    double minY() const override;
    double pixelSizeX() const override;
    double pixelSizeY() const override;
    std::uint64_t pixelsX() const override;
    std::uint64_t pixelsY() const override;
    NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override;
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;
    unsigned granularityX() const override;
    unsigned granularityY() const override;
    bool failed() const override;

private:
    NBX::SO<TiledGeoImage> image_;
};

} // namespace ZMT::RASTER
