#pragma once

#include <cstdint>
#include <map>

#include <zmt/util/profilerdata.h>

namespace ZMT::UTIL {

/// The timing table of the process: what runs is measured between `start` and `stop`, and told in a row for
/// each name on the standard error stream.
///
/// Measurements may lie in each other; what the inner ones cost is taken off the outer ones, once that was
/// measured. Has no lock: it serves one thread, that of the pictures, and reads the system's monotonic clock.
class Profiler {
public:
    /// The one of the process, made at the first call.
    static Profiler & instance();

    virtual ~Profiler();
    Profiler(const Profiler &) = delete;
    Profiler & operator=(const Profiler &) = delete;

    /// A new row, behind those that are there. It stays the profiler's; `name` stays the caller's, and has to
    /// live as long. At most 20 letters fit in a row.
    ProfilerData * newId(const wchar_t * name);

    /// Begins a measurement, in the place of one that runs. Nothing for null.
    void start(ProfilerData * data);
    /// Ends it; nothing for null, and where none runs. It does not count when the clock has not gone on, or
    /// when `reset` came between.
    void stop(ProfilerData * data);

    /// Measures what a measurement costs, to be taken off from then on: the smallest mean of `rounds` rounds
    /// of `loops` pairs. Takes about a tenth of a microsecond for each pair. Without any it counts as
    /// nothing.
    void measureOverhead(int rounds, int loops);

    /// Writes one row. Nothing for null.
    void dump(const ProfilerData * data);
    /// Writes the table, with a heading: of the rows with at least so many calls and seconds, first that of
    /// the profiler's own cost, then the others in the order in which they were made.
    void dumpAll(long long minCalls, double minTotalTime);

    /// Sets all rows, and the count of events, back; what a measurement costs stays known.
    void reset();

    /// Where time comes from. Each is false where it cannot be told.
    struct Counter {
        bool (*ticks)(std::int64_t & ticks);
        bool (*frequency)(std::int64_t & ticksPerSecond); ///< otherwise 1193180
    };
    /// Replaces the clock of all profilers, and returns the one before; tests step one of their own.
    static Counter setCounter(Counter counter);

protected:
    Profiler() = default;

private:
    struct Item;
    struct OlderFirst {
        bool operator()(const ProfilerData * a, const ProfilerData * b) const;
    };

    double innerOverhead_ = 0.0; ///< of a measurement, in seconds
    double outerOverhead_ = 0.0; ///< which one adds to that around it
    std::int64_t events_ = 0;    ///< calls of `start`
    /// All rows; the flag says whether the profiler deletes them.
    std::map<ProfilerData *, bool, OlderFirst> ids_;
};

} // namespace ZMT::UTIL
