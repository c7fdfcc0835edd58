#include "readengine.h"

#include "threadreadengine.h"

namespace ZMT::CORE::IMPL {

namespace {

ReadEngine & threads() {
    static ThreadReadEngine & engine = *new ThreadReadEngine;
    return engine;
}

/// Null before it is first asked for.
ReadEngine * s_current = nullptr;

} // namespace

ReadEngine & ReadEngine::instance() {
    if (!s_current) use(RE_Automatic);
    return *s_current;
}

bool ReadEngine::use(Kind kind) {
    if (kind == RE_Ring) return false;
    s_current = &threads();
    return true;
}

} // namespace ZMT::CORE::IMPL
