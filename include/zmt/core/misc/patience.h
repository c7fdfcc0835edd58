#pragma once

#include <functional>

namespace ZMT::CORE {

/// How long this thread, while the object lives, waits for bytes of files that are read asynchronously: all
/// waits together, whatever they wait for. A wait that ends so gives false, as one that failed does, but what
/// it waited for goes on and may be asked for again. Within another one, the one that ends first counts.
///
/// Without any, a wait ends after 30 s, and then the request fails.
class Patience {
public:
    /// Ends `seconds` after now; with 0 nothing is waited for.
    explicit Patience(double seconds);
    /// Ends when `isLost` says so, which is asked every few milliseconds, on this thread. Waits for web
    /// servers hand on what the user does meanwhile, which otherwise stays queued: who makes such a patience
    /// copes with that.
    explicit Patience(std::function<bool()> isLost);
    ~Patience();
    Patience(const Patience &) = delete;
    Patience & operator=(const Patience &) = delete;

    /// Of those that live on this thread, whether one has ended.
    static bool hasEnded();
    /// Whether one of them has the user's input handed on.
    static bool takesInput();

private:
    Patience(double end, std::function<bool()> isLost);

    const double end_;
    const std::function<bool()> isLost_; ///< null for one that time ends
    Patience * const outer_;
};

} // namespace ZMT::CORE
