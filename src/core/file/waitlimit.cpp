#include "waitlimit.h"

#include "filecalls.h"

namespace ZMT::CORE::IMPL {

namespace {

/// Of this thread: how many limits lie within each other, and when they end.
thread_local int s_depth = 0;
thread_local double s_end = 0.0;

} // namespace

WaitLimit::WaitLimit() {
    if (s_depth++ == 0) s_end = fileCalls().now() + s_seconds;
}

WaitLimit::~WaitLimit() {
    --s_depth;
}

bool WaitLimit::hasPassed() const {
    return fileCalls().now() >= s_end;
}

} // namespace ZMT::CORE::IMPL
