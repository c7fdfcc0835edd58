#include <zmt/raster/cachedtiledgeoimage.h>

#include <algorithm>
#include <optional>

#include <nbx/image/image.h>
#include <zmt/raster/pixelblocks.h>
#include <zmt/raster/tilecache.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(CachedTiledGeoImage, DecoratedTiledGeoImage)

namespace {

constexpr unsigned minTile = 64, maxTile = 1024;

unsigned tileSize(unsigned granularity) {
    return std::clamp(granularity, minTile, maxTile);
}

} // namespace

CachedTiledGeoImage::CachedTiledGeoImage(TiledGeoImage * image, std::uint64_t maxBytes)
    : DecoratedTiledGeoImage(image), cache_(std::make_unique<TileCache>(maxBytes)),
      tileX_(tileSize(DecoratedTiledGeoImage::granularityX())),
      tileY_(tileSize(DecoratedTiledGeoImage::granularityY())) {}

CachedTiledGeoImage::~CachedTiledGeoImage() = default;

void CachedTiledGeoImage::clearCache() {
    cache_->clear();
}

std::uint64_t CachedTiledGeoImage::maxBytes() const {
    return cache_->maxBytes();
}

std::uint64_t CachedTiledGeoImage::usedBytes() const {
    return cache_->usedBytes();
}

NBX::SO<NBX::Image> CachedTiledGeoImage::tile(std::int64_t column, std::int64_t row) const {
    const std::uint64_t columns = pixelsX() / tileX_ + 1;
    const std::uint64_t number =
        static_cast<std::uint64_t>(row) * columns + static_cast<std::uint64_t>(column);
    if (const std::optional<NBX::SO<NBX::Image>> known = cache_->find(number)) return *known;
    NBX::SO<NBX::Image> tile = load(column, row);
    if (!failed()) cache_->keep(number, tile);
    return tile;
}

NBX::SO<NBX::Image> CachedTiledGeoImage::load(std::int64_t column, std::int64_t row) const {
    const std::int64_t x = column * tileX_, y = row * tileY_;
    const auto size = [](std::int64_t first, std::uint64_t all, unsigned tile) {
        return static_cast<unsigned>(std::min<std::uint64_t>(tile, all - static_cast<std::uint64_t>(first)));
    };
    return DecoratedTiledGeoImage::getImage(static_cast<int>(x), static_cast<int>(y),
                                            size(x, pixelsX(), tileX_), size(y, pixelsY(), tileY_));
}

NBX::SO<NBX::Image> CachedTiledGeoImage::getImage(int x, int y, unsigned width, unsigned height) const {
    NBX::SO<NBX::Image> result =
        PixelBlocks::readTiles(*this, x, y, width, height, tileX_, tileY_,
                               [&](std::int64_t column, std::int64_t row, NBX::SO<NBX::Image> & tile) {
                                   tile = this->tile(column, row);
                                   return true;
                               });
    return failed() ? nullptr : result;
}

} // namespace ZMT::RASTER
