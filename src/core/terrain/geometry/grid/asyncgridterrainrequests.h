#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>

#include <nbx/object/wo.h>
#include <zmt/core/misc/asyncfile.h>

namespace ZMT::CORE::GRID {

class AsyncGridTerrainTile;

/// The requests that tiles recently wanted, of all terrains of the process, and how many blocks were taken in
/// this frame. Render thread.
class AsyncGridTerrainRequests {
public:
    /// Decompressing more of them would be felt.
    static constexpr unsigned s_tilesPerFrame = 3;
    /// So many seconds after it was last wanted, a request is cancelled: one that waits soon, one that is
    /// under way or ready later.
    static constexpr double s_queuedAge = 0.25, s_startedAge = 5.0;

    static AsyncGridTerrainRequests & instance();

    /// The time that ages are counted by: `NBX::NBXTime::now`, or what tests put in its place. Null brings it
    /// back.
    static double now();
    static void setClock(double (*clock)());

    /// `tile` wants `request` now, which waits in the queue.
    void want(const NBX::SO<AsyncFile::Request> & request, const AsyncGridTerrainTile * tile);
    /// `request` is wanted now and has left the queue. Its age stays that of its last moment there, unless
    /// bytes have come since: over a slow line every block would be cancelled and asked for again for ever.
    void wantStarted(const NBX::SO<AsyncFile::Request> & request);
    /// False when it was not known.
    bool forget(const NBX::SO<AsyncFile::Request> & request);
    std::size_t count() const { return requests_.size(); }

    /// Whether one more block may be taken in this frame, which is then counted. Those who wait may always.
    bool mayTake(bool blocking);
    /// A new frame: cancels what has become too old. Looks at all requests, which moves them on.
    void beginFrame();

    void noteFailed(const AsyncGridTerrainTile * tile) { failed_.insert(tile); }
    void noteNotFailed(const AsyncGridTerrainTile * tile) { failed_.erase(tile); }
    /// The tiles whose last read failed.
    const std::set<const AsyncGridTerrainTile *> & failed() const { return failed_; }

private:
    struct Wanted {
        double time;
        NBX::WO<const AsyncGridTerrainTile> tile;
        std::int64_t bytes = -1; ///< that had come when it was last wanted
    };

    std::map<NBX::SO<AsyncFile::Request>, Wanted> requests_;
    std::set<const AsyncGridTerrainTile *> failed_;
    unsigned tilesTakenThisFrame_ = 0;
};

} // namespace ZMT::CORE::GRID
