#include <nbx/engine/mainmemoryshare.h>

#include <algorithm>
#include <atomic>

#include <nbx/engine/mainmemorymanager.h>

namespace NBX {

namespace {

std::atomic<unsigned> s_shares = 0;

} // namespace

MainMemoryShare::MainMemoryShare() {
    ++s_shares;
}

MainMemoryShare::~MainMemoryShare() {
    setUsed(0);
    --s_shares;
}

void MainMemoryShare::setUsed(std::uint64_t bytes) {
    MainMemoryManager::instance()->addOthers(std::int64_t(bytes) - std::int64_t(used_));
    used_ = bytes;
}

std::uint64_t MainMemoryShare::excess() const {
    const MainMemoryManager & manager = *MainMemoryManager::instance();
    const std::uint64_t part = manager.getBudget() / s_shares;
    return used_ > part ? std::min(used_ - part, manager.excess()) : 0;
}

} // namespace NBX
