#pragma once

#include <cstdint>
#include <memory>

#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::RASTER {

/// Another image with those of its tiles in memory that were used last. One thread at a time reads.
class CachedTiledGeoImage : public TiledGeoImage {
    NBX_CLASS(CachedTiledGeoImage, TiledGeoImage)
public:
    /// Keeps at most `maxBytes` of pixels; a tile larger than that is delivered and not kept. A null image
    /// is reported.
    CachedTiledGeoImage(TiledGeoImage * image, std::uint64_t maxBytes);
    ~CachedTiledGeoImage() override;

    /// Forgets all tiles.
    void clearCache();
    std::uint64_t maxBytes() const;
    std::uint64_t usedBytes() const;

    unsigned bands() const override;
    double minX() const override;
    double minY() const override;
    double pixelSizeX() const override;
    double pixelSizeY() const override;
    std::uint64_t pixelsX() const override;
    std::uint64_t pixelsY() const override;
    NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override;
    /// Tiles that cannot be read are not remembered: the next call tries again.
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;
    /// The size of the tiles in the cache: that of the image's, but at least 64 and at most 1024 pixels.
    unsigned granularityX() const override;
    unsigned granularityY() const override;
    bool failed() const override;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace ZMT::RASTER
