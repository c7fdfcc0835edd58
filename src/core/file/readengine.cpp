#include "readengine.h"

#include <memory>
#include <utility>

#include "ringreadengine.h"
#include "threadreadengine.h"

namespace ZMT::CORE::IMPL {

namespace {

ReadEngine & threads() {
    static ThreadReadEngine & engine = *new ThreadReadEngine;
    return engine;
}

/// Null before it is first asked for. The ring is null where there is none.
ReadEngine * s_current = nullptr;
RingReadEngine * s_ring = nullptr;

constexpr double s_waitSeconds = 0.01;
constexpr int s_mostWaits = 200;

} // namespace

ReadEngine & ReadEngine::instance() {
    if (!s_current) use(RE_Automatic);
    return *s_current;
}

bool ReadEngine::use(Kind kind) {
    // Reads that were given up are owed until the kernel has let go of them.
    for (int i = 0; s_current && FileRead::countOwed() > 0 && i < s_mostWaits; ++i)
        s_current->wait(s_waitSeconds);
    std::unique_ptr<RingReadEngine> ring;
    if (kind != RE_Threads) ring = RingReadEngine::create(threads());
    if (kind == RE_Ring && !ring) return false;
    delete std::exchange(s_ring, ring.release());
    s_current = s_ring;
    if (!s_ring) s_current = &threads();
    return true;
}

} // namespace ZMT::CORE::IMPL
