#pragma once

#include <nbx/object/nbxtime.h>

namespace ZMT::CORE::IMPL {

/// How long a silence of the server ends a transfer, in milliseconds.
constexpr int CONNECTION_TIME_OUT = 2000;

/// The spans that the transfers from web servers keep to. One set for the process, which tests shorten.
struct HttpTimes {
    int silenceMilliseconds = CONNECTION_TIME_OUT;
    /// A transfer that brings fewer than `slowBytes` in this many seconds ends, so that a server that drips
    /// does not keep its place for ever.
    double slowSeconds = 10.0;
    unsigned slowBytes = 1024;
    /// After a failure nothing starts at the host for so many seconds, doubling up to the second.
    double firstPause = 0.25;
    double longestPause = 10.0;
    /// The clock of the pauses, in seconds.
    double (*now)() = systemNow;

    static double systemNow() { return NBX::NBXTime::now(); }
};

HttpTimes & httpTimes();

} // namespace ZMT::CORE::IMPL
