#include <zmt/raster/tilecache.h>

#include <algorithm>

namespace ZMT::RASTER {

NBX_CLASS_IMPL(TileCache, NBX::SharedObj)

namespace {

std::uint64_t bytesOf(const NBX::SO<NBX::Image> & tile) {
    if (!tile) return TileCache::leastTileBytes;
    return std::max(TileCache::leastTileBytes, static_cast<std::uint64_t>(tile->width()) *
                                                   static_cast<std::uint64_t>(tile->height()) *
                                                   static_cast<std::uint64_t>(tile->bitsPerPixel()) / 8);
}

} // namespace

TileCache::TileCache(std::uint64_t maxBytes) : maxBytes_(maxBytes) {}

std::uint64_t TileCache::usedBytes() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return usedBytes_;
}

std::optional<NBX::SO<NBX::Image>> TileCache::find(std::uint64_t number) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const NBX::SO<NBX::Image> * found = tiles_.find(number);
    const std::optional<NBX::SO<NBX::Image>> tile = found ? std::optional(*found) : std::nullopt;
    giveWay();
    return tile;
}

void TileCache::keep(std::uint64_t number, const NBX::SO<NBX::Image> & tile) {
    const std::uint64_t bytes = bytesOf(tile);
    if (bytes > maxBytes_) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (tiles_.contains(number)) return;
    while (usedBytes_ + bytes > maxBytes_)
        removeOldest();
    tiles_.insert(number, tile);
    setUsedBytes(usedBytes_ + bytes);
    giveWay();
}

void TileCache::clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    tiles_.clear();
    setUsedBytes(0);
}

void TileCache::setUsedBytes(std::uint64_t bytes) {
    usedBytes_ = bytes;
    share_.setUsed(bytes);
}

void TileCache::removeOldest() {
    const std::uint64_t bytes = bytesOf(tiles_.oldest()->second);
    tiles_.removeOldest();
    setUsedBytes(usedBytes_ - bytes);
}

void TileCache::giveWay() {
    while (tiles_.size() > 1 && share_.excess() > 0)
        removeOldest();
}

} // namespace ZMT::RASTER
