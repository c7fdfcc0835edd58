#pragma once

#include <vector>

#include <nbx/image/image.h>
#include <zmt/raster/tiledgeoimage.h>
#include <zmt/raster/tiledgeoimagepyramid.h>

namespace ZMT::UTIL {

/// Several pyramids of one coordinate system as one image, in the resolution of the finest; the later ones
/// lie above the earlier. What none of them covers is transparent. One thread at a time reads.
class MosaicTiledGeoImage : public RASTER::TiledGeoImage {
    NBX_CLASS(MosaicTiledGeoImage, RASTER::TiledGeoImage)
public:
    /// At least one, each with a level.
    explicit MosaicTiledGeoImage(std::vector<NBX::SO<RASTER::TiledGeoImagePyramid>> parts);

    unsigned bands() const override;
    double minX() const override { return extent_.minX; }
    double minY() const override { return extent_.minY; }
    double pixelSizeX() const override { return pixelSizeX_; }
    double pixelSizeY() const override { return pixelSizeY_; }
    std::uint64_t pixelsX() const override { return pixelsX_; }
    std::uint64_t pixelsY() const override { return pixelsY_; }
    unsigned granularityX() const override { return granularity_; }
    unsigned granularityY() const override { return granularity_; }
    bool failed() const override;
    NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override;
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;

private:
    static constexpr unsigned granularity_ = 256;

    void findFormat();
    bool draw(const RASTER::TiledGeoImagePyramid & part, int x, int y, NBX::Image & target) const;

    std::vector<NBX::SO<RASTER::TiledGeoImagePyramid>> parts_;
    RASTER::GeoExtent extent_;
    double pixelSizeX_, pixelSizeY_;
    std::uint64_t pixelsX_, pixelsY_;
    NBX::LayerSequence layers_ = NBX::LS_RGBA;
    int dataType_ = NBX::Image::UInt8;
};

} // namespace ZMT::UTIL
