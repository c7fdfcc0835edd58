#pragma once

namespace ZMT::CORE::IMPL {

/// The end of a blocking wait, 30 s after it began, however many requests it waits for and whatever drips in
/// meanwhile: a limit within another one ends with the outer one. One thread waits at a time.
class WaitLimit {
public:
    static constexpr double s_seconds = 30.0;

    WaitLimit();
    ~WaitLimit();
    WaitLimit(const WaitLimit &) = delete;
    WaitLimit & operator=(const WaitLimit &) = delete;

    bool hasPassed() const;
};

} // namespace ZMT::CORE::IMPL
