#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <nbx/image/image.h>
#include <nbx/object/so.h>
#include <zmt/util/compressedtexture/compressedtexture.h>

namespace ZMT::UTIL {

/// A tile as it goes into the file; no bytes for an empty one.
struct EncodedTile {
    std::uint64_t index = 0;
    std::vector<std::uint8_t> bytes;
};

/// Brings tiles into their pixel format and deflates them, on as many threads as the machine has. Tiles come
/// out in the order in which they went in, and no more than a few a thread are under way. What the encoding
/// of a tile throws, such as for want of memory, is thrown where the tile would be written. Used by one
/// thread.
class TileEncoder {
public:
    TileEncoder(CompressedTexture::PixelFormat format, bool deflates,
                std::function<void(const EncodedTile &)> write);
    /// Drops what is under way.
    ~TileEncoder();
    TileEncoder(const TileEncoder &) = delete;
    TileEncoder & operator=(const TileEncoder &) = delete;

    /// Writes tiles that are ready and waits while too many are under way. `image` may not change any more.
    void add(std::uint64_t index, NBX::SO<NBX::Image> image);
    /// Waits for all tiles and writes them.
    void finish();

private:
    struct Job {
        EncodedTile tile;
        NBX::SO<NBX::Image> image;
        std::exception_ptr failure; ///< what the encoding threw
        bool done = false;
    };

    void work();
    void encode(Job & job) const;
    void writeUntil(std::size_t left);

    CompressedTexture::PixelFormat format_;
    bool deflates_;
    std::function<void(const EncodedTile &)> write_;

    std::mutex mutex_; ///< guards what follows, and `done` of the jobs
    std::condition_variable jobAdded_, jobDone_;
    std::deque<std::shared_ptr<Job>> waiting_; ///< for a thread
    bool stops_ = false;

    std::deque<std::shared_ptr<Job>> ordered_; ///< all under way; of the adding thread
    std::vector<std::thread> threads_;
};

} // namespace ZMT::UTIL
