#include "arrivals.h"

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>

Arrivals::MemoryInUse Arrivals::memoryInUse() {
    return {NBX::MainMemoryManager::instance()->total(), NBX::GraphicsMemoryManager::instance()->total()};
}

bool Arrivals::haveProgressed() {
    const std::uint64_t bytes = ZMT::CORE::ReadProgress::totalBytes();
    const MemoryInUse memory = memoryInUse();
    const unsigned long textures = ZMT::CORE::VectorTexture::renderCount();
    if (bytes - bytes_ < s_fewestBytes && memory == memory_ && textures == textures_) return false;
    bytes_ = bytes;
    memory_ = memory;
    textures_ = textures;
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
