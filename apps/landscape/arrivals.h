#pragma once

#include <array>
#include <cstdint>

#include <nbx/object/nbxtime.h>

/// Notices that nothing arrives any more of what is read while it is looked at.
class Arrivals {
public:
    /// Seconds without progress after which nothing more is expected, and how often one has asked meanwhile:
    /// on a busy machine a picture may take long, and what has been read is taken over several of them.
    static constexpr double s_patience = 10.0;
    static constexpr unsigned s_fewestAsks = 5;

    /// To be asked once a picture, or more often; `now` in seconds.
    bool haveEnded(double now = NBX::NBXTime::now());

private:
    /// Bytes that came, and those that are in use in both kinds of memory.
    using Progress = std::array<std::uint64_t, 3>;
    static Progress present();

    Progress progress_ = present();
    double last_ = NBX::NBXTime::now();
    unsigned asks_ = 0;
};
