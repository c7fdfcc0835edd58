#include "arrivals.h"

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>

Arrivals::MemoryInUse Arrivals::memoryInUse() {
    return {NBX::MainMemoryManager::instance()->total(), NBX::GraphicsMemoryManager::instance()->total()};
}

bool Arrivals::haveProgressed() {
    const std::uint64_t bytes = ZMT::CORE::ReadProgress::totalBytes();
    const MemoryInUse memory = memoryInUse();
    if (bytes - bytes_ < s_fewestBytes && memory == memory_) return false;
    bytes_ = bytes;
    memory_ = memory;
    return true;
}

bool Arrivals::haveEnded(double now) {
    ++asks_;
    if (haveProgressed()) {
        last_ = now;
        asks_ = 0;
    }
    return asks_ >= s_fewestAsks && now - last_ > s_patience;
}
