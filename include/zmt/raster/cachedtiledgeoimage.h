#pragma once

#include <cstdint>
#include <memory>

#include <zmt/raster/decoratedtiledgeoimage.h>

namespace ZMT::RASTER {

class TileCache;

/// Another image with those of its tiles in memory that were used last. One thread at a time reads.
class CachedTiledGeoImage : public DecoratedTiledGeoImage {
    NBX_CLASS(CachedTiledGeoImage, DecoratedTiledGeoImage)
public:
    /// Keeps at most `maxBytes` of pixels; a tile larger than that is delivered and not kept. A null image
    /// is reported.
    CachedTiledGeoImage(TiledGeoImage * image, std::uint64_t maxBytes);
    ~CachedTiledGeoImage() override;

    /// Forgets all tiles.
    void clearCache();
    std::uint64_t maxBytes() const;
    std::uint64_t usedBytes() const;

    /// Tiles that cannot be read are not remembered: the next call tries again.
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;
    /// The size of the tiles in the cache: that of the image's, but at least 64 and at most 1024 pixels.
    unsigned granularityX() const override { return tileX_; }
    unsigned granularityY() const override { return tileY_; }

private:
    NBX::SO<NBX::Image> tile(std::int64_t column, std::int64_t row) const;
    NBX::SO<NBX::Image> load(std::int64_t column, std::int64_t row) const;

    std::unique_ptr<TileCache> cache_;
    unsigned tileX_, tileY_;
};

} // namespace ZMT::RASTER
