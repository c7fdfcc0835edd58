#pragma once

#include <cstdint>

namespace ZMT::UTIL {

/// One row of `Profiler`: how often something was measured, and how long it took.
struct ProfilerData {
    const wchar_t * name = L""; ///< not owned
    std::int64_t calls = 0;     ///< measurements that ended
    /// Of the performance counter where a measurement began; -1 while none runs.
    std::int64_t startTicks = -1;
    double totalTime = 0.0; ///< in seconds, as all times
    double minTime = 1e100; ///< means nothing without calls, as the next one
    double maxTime = 0.0;
    std::int64_t startEvent = 0; ///< the profiler's count of events where a measurement began

    /// All but the name.
    void reset() { *this = ProfilerData{name}; }
};

} // namespace ZMT::UTIL
