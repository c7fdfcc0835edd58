#pragma once

namespace NBX {

/// A moment or a span in seconds.
class NBXTime {
public:
    NBXTime(double seconds = 0.0) : seconds_(seconds) {}
    operator double() const { return seconds_; }

    /// Seconds of a clock that never goes backwards; only differences mean something.
    static NBXTime now();

private:
    double seconds_;
};

} // namespace NBX
