#pragma once

#include <nbx/image/image.h>
#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::RASTER {

/// An image in memory as a `TiledGeoImage`. Several threads may read.
class MemoryTiledGeoImage : public TiledGeoImage {
    NBX_CLASS(MemoryTiledGeoImage, TiledGeoImage)
public:
    /// `extent` goes to the outer edges. A null image and an extent without area are reported.
    MemoryTiledGeoImage(NBX::Image * image, const GeoExtent & extent);

    const NBX::SO<NBX::Image> & image() const { return image_; }

    unsigned bands() const override;
    double minX() const override { return extent_.minX; }
    double minY() const override { return extent_.minY; }
    double pixelSizeX() const override;
    double pixelSizeY() const override;
    std::uint64_t pixelsX() const override;
    std::uint64_t pixelsY() const override;
    NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override;
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;

private:
    NBX::SO<NBX::Image> image_;
    GeoExtent extent_;
};

} // namespace ZMT::RASTER
