#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <nbx/data/dataresource.h>
#include <nbx/data/file.h>
#include <nbx/object/so.h>

#include "streamingtextureformat.h"

namespace ZMT::CORE {

/// The blocks of a streaming texture on their way into the file: threads make and deflate them, and they are
/// written in the order in which they were added, so that the bytes are the same for any number of threads.
/// A block with children is deflated when these have their place. Used by one thread.
class TileBlockQueue {
public:
    using TileRef = StreamingTextureFormat::TileRef;
    using Block = std::vector<std::uint8_t>;
    /// Makes a block whose children are blank, on any thread.
    using Maker = std::function<Block()>;
    class Tile;
    /// Null for no tile.
    using Handle = std::shared_ptr<Tile>;
    using Children = std::array<Handle, StreamingTextureFormat::childCount>;

    /// Offsets count from `base` on. `threads` is as in the options.
    TileBlockQueue(const NBX::SO<NBX::File> & file, std::uint64_t base, std::uint64_t key, unsigned threads);
    /// Drops what is under way.
    ~TileBlockQueue();
    TileBlockQueue(const TileBlockQueue &) = delete;
    TileBlockQueue & operator=(const TileBlockQueue &) = delete;

    /// Children were added before. Writes blocks that are ready, and waits while too many are under way.
    /// Throws what making threw, and `NBX::IOException`.
    Handle add(Maker maker, const Children & children);
    /// Waits for all blocks and writes them. Throws as `add` does.
    void finish();
    /// Where a tile was written; only after `finish`.
    static TileRef refOf(const Handle & tile);

private:
    void work();
    void advance(const Handle & tile) const;
    void hand(const Handle & tile, bool first);
    void writeUntil(std::size_t left);
    bool bringToFile(const Handle & tile, bool waits);
    void write(Tile & tile);

    const NBX::SO<NBX::File> file_;
    const std::uint64_t base_, key_;

    std::mutex mutex_; ///< guards what follows, and the stages of the tiles
    std::condition_variable handed_, advanced_;
    std::deque<Handle> waiting_; ///< for a thread
    bool stops_ = false;

    std::deque<Handle> ordered_; ///< all under way; of the adding thread
    std::vector<std::thread> threads_;
};

} // namespace ZMT::CORE
