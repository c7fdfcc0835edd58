#pragma once

#include <algorithm>
#include <cmath>

#include <zmt/core/misc/asyncfile.h>

namespace ZMT::CORE::GRID {

/// How long a block is left alone that could not be read, or came damaged: twice as long each time. Both are
/// counted apart, since a long outage says nothing about the block, and a server that answers well again
/// nothing about one that is damaged.
class BlockRetry {
public:
    /// In seconds. Reads are tried soon, so that the picture is complete when the fault has gone: what keeps
    /// them from storming a server that fails is its own pause.
    static constexpr double s_first = 1.0, s_lastRead = 4.0, s_lastBlock = 60.0;
    /// What could be tried again for so many seconds, and is not asked for, is wanted no more.
    static constexpr double s_forgotten = 10.0;

    /// The pause after a read that failed.
    double readFailed() { return pause(reads_, s_lastRead); }
    /// The pause after a read that went well, but brought no sound block.
    double blockFailed() {
        reads_ = 0;
        return pause(blocks_, s_lastBlock);
    }
    void succeeded() { reads_ = blocks_ = 0; }
    /// Since the block last came whole.
    bool hasFailed() const { return reads_ > 0 || blocks_ > 0; }

    /// Whether a failure still matters `secondsDue` after it was time for the next try: not where that, which
    /// is `request`, has brought something, nor where nobody has asked for long.
    static bool isStillFailing(const NBX::SO<AsyncFile::Request> & request, double secondsDue) {
        const AsyncFile::RequestState state = request ? request->state() : AsyncFile::RS_Failed;
        if (state == AsyncFile::RS_Queued || state == AsyncFile::RS_Processing) return true;
        return state == AsyncFile::RS_Failed && secondsDue <= s_forgotten;
    }

    /// What a read of `priority` comes down to that nobody waits for any more: it does not stand in the way
    /// of what is seen.
    static double rankOfGivenUp(double priority) {
        return priority < AsyncFile::topPriority ? priority : 0.0;
    }

private:
    static double pause(unsigned & failures, double last) {
        const double result = std::min(last, std::ldexp(s_first, static_cast<int>(failures)));
        failures = std::min(failures + 1, s_mostCounted);
        return result;
    }

    static constexpr unsigned s_mostCounted = 16; ///< the pauses are the longest long before

    unsigned reads_ = 0, blocks_ = 0;
};

} // namespace ZMT::CORE::GRID
