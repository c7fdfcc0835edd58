#include <zmt/raster/cachedtiledgeoimage.h>

#include <algorithm>
#include <optional>

#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>
#include <zmt/raster/pixelblocks.h>
#include <zmt/raster/tilecache.h>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(CachedTiledGeoImage, TiledGeoImage)

namespace {

constexpr unsigned minTile = 64, maxTile = 1024;

unsigned tileSize(unsigned granularity) {
    return std::clamp(granularity, minTile, maxTile);
}

} // namespace

struct CachedTiledGeoImage::Impl {
    Impl(TiledGeoImage * image, std::uint64_t maxBytes) : source(image), cache(maxBytes) {}

    NBX::SO<NBX::Image> tile(std::int64_t column, std::int64_t row);
    NBX::SO<NBX::Image> load(std::int64_t column, std::int64_t row) const;

    NBX::SO<TiledGeoImage> source;
    TileCache cache;
    unsigned tileX = minTile, tileY = minTile;
};

NBX::SO<NBX::Image> CachedTiledGeoImage::Impl::tile(std::int64_t column, std::int64_t row) {
    const std::uint64_t columns = source->pixelsX() / tileX + 1;
    const std::uint64_t number =
        static_cast<std::uint64_t>(row) * columns + static_cast<std::uint64_t>(column);
    if (const std::optional<NBX::SO<NBX::Image>> known = cache.find(number)) return *known;
    NBX::SO<NBX::Image> image = load(column, row);
    if (!source->failed()) cache.keep(number, image);
    return image;
}

NBX::SO<NBX::Image> CachedTiledGeoImage::Impl::load(std::int64_t column, std::int64_t row) const {
    const std::int64_t x = column * tileX, y = row * tileY;
    const auto size = [](std::int64_t first, std::uint64_t all, unsigned tile) {
        return static_cast<unsigned>(std::min<std::uint64_t>(tile, all - static_cast<std::uint64_t>(first)));
    };
    return source->getImage(static_cast<int>(x), static_cast<int>(y), size(x, source->pixelsX(), tileX),
                            size(y, source->pixelsY(), tileY));
}

CachedTiledGeoImage::CachedTiledGeoImage(TiledGeoImage * image, std::uint64_t maxBytes)
    : impl_(std::make_unique<Impl>(image, maxBytes)) {
    NBX_CHECK(image, L"no image");
    if (!image) return;
    impl_->tileX = tileSize(image->granularityX());
    impl_->tileY = tileSize(image->granularityY());
}

CachedTiledGeoImage::~CachedTiledGeoImage() = default;

void CachedTiledGeoImage::clearCache() {
    impl_->cache.clear();
}

std::uint64_t CachedTiledGeoImage::maxBytes() const {
    return impl_->cache.maxBytes();
}

std::uint64_t CachedTiledGeoImage::usedBytes() const {
    return impl_->cache.usedBytes();
}

unsigned CachedTiledGeoImage::bands() const {
    return impl_->source ? impl_->source->bands() : 1;
}

double CachedTiledGeoImage::minX() const {
    return impl_->source ? impl_->source->minX() : 0.0;
}

double CachedTiledGeoImage::minY() const {
    return impl_->source ? impl_->source->minY() : 0.0;
}

double CachedTiledGeoImage::pixelSizeX() const {
    return impl_->source ? impl_->source->pixelSizeX() : 1.0;
}

double CachedTiledGeoImage::pixelSizeY() const {
    return impl_->source ? impl_->source->pixelSizeY() : 1.0;
}

std::uint64_t CachedTiledGeoImage::pixelsX() const {
    return impl_->source ? impl_->source->pixelsX() : 0;
}

std::uint64_t CachedTiledGeoImage::pixelsY() const {
    return impl_->source ? impl_->source->pixelsY() : 0;
}

unsigned CachedTiledGeoImage::granularityX() const {
    return impl_->tileX;
}

unsigned CachedTiledGeoImage::granularityY() const {
    return impl_->tileY;
}

bool CachedTiledGeoImage::failed() const {
    return impl_->source && impl_->source->failed();
}

NBX::SO<NBX::Image> CachedTiledGeoImage::createEmptyImage(unsigned width, unsigned height) const {
    return impl_->source ? impl_->source->createEmptyImage(width, height)
                         : TiledGeoImage::createEmptyImage(width, height);
}

NBX::SO<NBX::Image> CachedTiledGeoImage::getImage(int x, int y, unsigned width, unsigned height) const {
    const std::int64_t x0 = std::max(x, 0), y0 = std::max(y, 0);
    const std::int64_t x1 =
        std::min(x + static_cast<std::int64_t>(width), static_cast<std::int64_t>(pixelsX()));
    const std::int64_t y1 =
        std::min(y + static_cast<std::int64_t>(height), static_cast<std::int64_t>(pixelsY()));
    if (x0 >= x1 || y0 >= y1 || !PixelBlocks::isImageSize(width, height, 1)) return nullptr;
    NBX::SO<NBX::Image> result;
    for (std::int64_t row = y0 / impl_->tileY; row * impl_->tileY < y1; ++row) {
        for (std::int64_t column = x0 / impl_->tileX; column * impl_->tileX < x1; ++column) {
            const NBX::SO<NBX::Image> tile = impl_->tile(column, row);
            if (!tile) continue;
            if (!result) result = createEmptyImage(width, height);
            if (!result) return nullptr;
            PixelBlocks::paste(*tile, column * impl_->tileX - x, row * impl_->tileY - y, *result);
        }
    }
    return failed() ? nullptr : result;
}

} // namespace ZMT::RASTER
