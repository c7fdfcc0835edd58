#pragma once

#include <cstddef>

#include "fileread.h"

namespace ZMT::CORE::IMPL {

/// Carries out reads without keeping the caller waiting. All calls come from one thread.
class ReadEngine {
public:
    /// As many reads the process has under way.
    static constexpr std::size_t s_mostReads = 8;

    enum Kind {
        RE_Automatic, ///< the kernel's ring, and threads where that is not allowed
        RE_Ring,
        RE_Threads,
    };

    virtual ~ReadEngine() = default;

    /// Takes a read over, which is owed until the engine has let go of it. What goes wrong shows in the read.
    virtual void start(FileRead & read) = 0;
    /// Looks for reads that have ended, and goes on with those that had only a part.
    virtual void poll() = 0;
    /// The same, after waiting for one to end, for `seconds` at most.
    virtual void wait(double seconds) = 0;

    /// The one of the process, made when it is first asked for and never destroyed: what a thread or the
    /// kernel still reads at the end of the process finds its memory.
    static ReadEngine & instance();
    /// For tests and measurements, while nothing is read. False, with no change, where the system does not
    /// allow that kind. `RE_Automatic` asks the system again.
    static bool use(Kind kind);
};

} // namespace ZMT::CORE::IMPL
