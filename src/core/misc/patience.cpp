#include <zmt/core/misc/patience.h>

#include <limits>
#include <utility>

#include "core/file/filecalls.h"

namespace ZMT::CORE {

namespace {

/// The innermost of this thread.
thread_local Patience * s_innermost = nullptr;

} // namespace

Patience::Patience(double seconds) : Patience(IMPL::fileCalls().now() + seconds, nullptr) {}

Patience::Patience(std::function<bool()> isLost)
    : Patience(std::numeric_limits<double>::infinity(), std::move(isLost)) {}

Patience::Patience(double end, std::function<bool()> isLost)
    : end_(end), isLost_(std::move(isLost)), outer_(std::exchange(s_innermost, this)) {}

Patience::~Patience() {
    s_innermost = outer_;
}

bool Patience::hasEnded() {
    const double now = IMPL::fileCalls().now();
    for (const Patience * patience = s_innermost; patience; patience = patience->outer_)
        if (now >= patience->end_ || (patience->isLost_ && patience->isLost_())) return true;
    return false;
}

bool Patience::takesInput() {
    for (const Patience * patience = s_innermost; patience; patience = patience->outer_)
        if (patience->isLost_) return true;
    return false;
}

} // namespace ZMT::CORE
