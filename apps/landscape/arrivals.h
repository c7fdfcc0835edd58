#pragma once

#include <cstdint>

#include <nbx/object/nbxtime.h>

/// Notices that nothing arrives any more of what is read while it is looked at.
class Arrivals {
public:
    /// Seconds without a byte after which nothing more is expected.
    static constexpr double s_patience = 10.0;

    /// To be asked again and again.
    bool haveEnded();

private:
    std::uint64_t bytes_ = 0;
    double lastByte_ = NBX::NBXTime::now();
};
