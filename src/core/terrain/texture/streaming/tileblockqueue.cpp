// A block goes through two turns on the threads: it is made, and it is deflated when the references to its
// children are known, which are written before it. The queue's owner alone writes, in the order of adding.

#include "tileblockqueue.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/terrain/geometry/grid/model/tileblock.h"

namespace ZMT::CORE {

namespace {

constexpr unsigned s_deflateLevel = 9;
constexpr std::size_t s_tilesPerThread = 4;

unsigned numberOfThreads(unsigned wanted) {
    return wanted > 0 ? wanted : std::max(1U, std::thread::hardware_concurrency());
}

} // namespace

/// A block under way. It belongs to the thread that works on it, between that to the queue.
class TileBlockQueue::Tile {
public:
    enum Stage {
        S_Handed,  ///< a thread has it, or will have it
        S_Made,    ///< its children are to be entered
        S_Deflated ///< it can be written
    };

    Maker maker;
    Children children;
    Block raw;
    NBX::SO<NBX::DataResource> deflated; ///< null where the raw block is stored
    TileRef ref;
    std::exception_ptr failure;
    Stage stage = S_Handed;

    bool hasChildren() const {
        return std::any_of(children.begin(), children.end(), [](const Handle & child) { return child; });
    }
    /// They have been written.
    void enterChildren() {
        for (std::size_t i = 0; i < children.size(); ++i) {
            if (!children[i]) continue;
            std::memcpy(raw.data() + offsetof(StreamingTextureFormat::TileHeader, children) +
                            i * TileRef::storedBytes,
                        &children[i]->ref, TileRef::storedBytes);
            children[i] = nullptr;
        }
    }
};

TileBlockQueue::TileBlockQueue(const NBX::SO<NBX::File> & file, std::uint64_t base, std::uint64_t key,
                               unsigned threads)
    : file_(file), base_(base), key_(key) {
    for (unsigned i = 0; i < numberOfThreads(threads); ++i)
        threads_.emplace_back([this] { work(); });
}

TileBlockQueue::~TileBlockQueue() {
    {
        const std::lock_guard lock(mutex_);
        stops_ = true;
        waiting_.clear();
    }
    handed_.notify_all();
    for (std::thread & thread : threads_)
        thread.join();
}

void TileBlockQueue::work() {
    std::unique_lock lock(mutex_);
    while (true) {
        handed_.wait(lock, [this] { return stops_ || !waiting_.empty(); });
        if (stops_) return;
        const Handle tile = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();
        try {
            advance(tile);
        } catch (...) {
            tile->failure = std::current_exception();
        }
        lock.lock();
        tile->stage = tile->hasChildren() ? Tile::S_Made : Tile::S_Deflated;
        advanced_.notify_one();
    }
}

void TileBlockQueue::advance(const Handle & tile) const {
    if (tile->maker) tile->raw = std::exchange(tile->maker, nullptr)();
    if (tile->hasChildren()) return;
    tile->deflated = GRID::TileBlock::deflated(tile->raw.data(), static_cast<std::uint32_t>(tile->raw.size()),
                                               s_deflateLevel);
}

void TileBlockQueue::hand(const Handle & tile, bool first) {
    {
        const std::lock_guard lock(mutex_);
        tile->stage = Tile::S_Handed;
        if (first)
            waiting_.push_front(tile);
        else
            waiting_.push_back(tile);
    }
    handed_.notify_one();
}

TileBlockQueue::Handle TileBlockQueue::add(Maker maker, const Children & children) {
    auto tile = std::make_shared<Tile>();
    tile->maker = std::move(maker);
    tile->children = children;
    ordered_.push_back(tile);
    hand(tile, false);
    writeUntil(s_tilesPerThread * threads_.size());
    return tile;
}

void TileBlockQueue::finish() {
    writeUntil(0);
}

void TileBlockQueue::writeUntil(std::size_t left) {
    while (!ordered_.empty() && bringToFile(ordered_.front(), ordered_.size() > left))
        ordered_.pop_front();
}

/// Of the tile that is next in the file; false while it is not ready and the caller does not wait.
bool TileBlockQueue::bringToFile(const Handle & tile, bool waits) {
    while (true) {
        {
            std::unique_lock lock(mutex_);
            if (waits) advanced_.wait(lock, [&] { return tile->stage != Tile::S_Handed; });
            if (tile->stage == Tile::S_Handed) return false;
        }
        if (tile->failure) std::rethrow_exception(tile->failure);
        if (tile->stage == Tile::S_Deflated) break;
        tile->enterChildren();
        hand(tile, true);
    }
    write(*tile);
    return true;
}

void TileBlockQueue::write(Tile & tile) {
    const auto rawSize = static_cast<std::uint32_t>(tile.raw.size());
    void * bytes = tile.deflated ? tile.deflated->pointer() : tile.raw.data();
    const std::uint32_t storedSize = tile.deflated ? tile.deflated->size() : rawSize;
    StreamingTextureFormat::scramble(bytes, storedSize, key_);
    tile.ref = GRID::TileBlock::append(*file_, base_, bytes, storedSize, rawSize);
    tile.raw = Block();
    tile.deflated = nullptr;
}

TileBlockQueue::TileRef TileBlockQueue::refOf(const Handle & tile) {
    return tile ? tile->ref : TileRef();
}

} // namespace ZMT::CORE
