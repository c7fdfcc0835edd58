#pragma once

#include <zmt/core/misc/thread.h>

inline void waitForEnd(const ZMT::CORE::Thread & thread) {
    while (thread.isRunning())
        ZMT::CORE::Thread::sleep(0.001);
}
