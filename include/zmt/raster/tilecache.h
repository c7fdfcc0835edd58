#pragma once

#include <cstdint>
#include <mutex>
#include <optional>

#include <nbx/container/map/lrumap.h>
#include <nbx/engine/mainmemoryshare.h>
#include <nbx/image/image.h>
#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace ZMT::RASTER {

/// Decoded tiles by their numbers, as many as a budget allows, those that were used last. They count for
/// `NBX::MainMemoryManager`; where that has too little, tiles go at the next use, on the thread of that use.
/// Any thread may use it; what is kept may not change any more.
class TileCache : public NBX::SharedObj {
    NBX_CLASS(TileCache, NBX::SharedObj)
public:
    /// What a tile counts at least, since a small one takes more than its pixels.
    static constexpr std::uint64_t leastTileBytes = 512;

    /// Keeps tiles of at most `maxBytes` in all; one larger than that is not kept.
    explicit TileCache(std::uint64_t maxBytes);

    std::uint64_t maxBytes() const { return maxBytes_; }
    std::uint64_t usedBytes() const;

    /// The tile, which counts as a use; null for a tile without pixels, and nothing when it is not kept.
    std::optional<NBX::SO<NBX::Image>> find(std::uint64_t number);
    /// Keeps a tile, null for one without pixels. One that is kept already stays as it is.
    void keep(std::uint64_t number, const NBX::SO<NBX::Image> & tile);
    /// Forgets all tiles.
    void clear();

private:
    void setUsedBytes(std::uint64_t bytes);
    void removeOldest();
    /// Lets tiles go while main memory is short; the newest one stays.
    void giveWay();

    const std::uint64_t maxBytes_;
    mutable std::mutex mutex_; ///< guards what follows
    std::uint64_t usedBytes_ = 0;
    NBX::MainMemoryShare share_;
    NBX::LRUMap<std::uint64_t, NBX::SO<NBX::Image>> tiles_;
};

} // namespace ZMT::RASTER
