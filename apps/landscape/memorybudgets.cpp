#include "memorybudgets.h"

#include <malloc.h>

#include "errors.h"
#include "overlays.h"

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

void checkMemoryBudgets(const MemoryBudgets & budgets) {
    const auto check = [](const char * option, unsigned mebibytes) {
        if (mebibytes < 1 || mebibytes > MemoryBudgets::s_largest)
            throw UsageError(std::string(option) + " must be from 1 to " +
                             std::to_string(MemoryBudgets::s_largest) + " MiB: " + std::to_string(mebibytes));
    };
    check("--memory", budgets.main);
    check("--graphics-memory", budgets.graphics);
    check("--city-memory", budgets.city);
    check("--texture-memory", budgets.overlay);
}

MemoryBudgets presentMemoryBudgets() {
    return {.main = NBX::MainMemoryManager::instance()->getBudget() >> 20U,
            .graphics = NBX::GraphicsMemoryManager::instance()->getBudget() >> 20U,
            .city = unsigned(ZMT::CORE::TTTMemoryController::getMaxTextureMemory() >> 20U),
            .overlay = Overlays::textureMemory()};
}

void applyMemoryBudgets(const MemoryBudgets & budgets) {
    NBX::MainMemoryManager::instance()->setBudget(budgets.main << 20U);
    NBX::GraphicsMemoryManager::instance()->setBudget(budgets.graphics << 20U);
    Overlays::setTextureMemory(budgets.overlay);
    ZMT::CORE::TTTMemoryController::setMaxTextureMemory(std::uint64_t{budgets.city} << 20U);
}

void giveMemoryBack() {
    // Pictures and vertices of tiles, and what drivers make for a draw, are larger.
    constexpr int smallestBlock = 48 << 10;
    mallopt(M_MMAP_THRESHOLD, smallestBlock);
}
