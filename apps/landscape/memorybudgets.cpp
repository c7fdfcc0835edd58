#include "memorybudgets.h"

#include "errors.h"

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>

void checkMemoryBudgets(const MemoryBudgets & budgets) {
    const auto check = [](const char * option, unsigned mebibytes) {
        if (mebibytes < 1 || mebibytes > MemoryBudgets::s_largest)
            throw UsageError(std::string(option) + " must be from 1 to " +
                             std::to_string(MemoryBudgets::s_largest) + " MiB: " + std::to_string(mebibytes));
    };
    check("--memory", budgets.main);
    check("--graphics-memory", budgets.graphics);
}

MemoryBudgets presentMemoryBudgets() {
    return {.main = NBX::MainMemoryManager::instance()->getBudget() >> 20U,
            .graphics = NBX::GraphicsMemoryManager::instance()->getBudget() >> 20U};
}

void applyMemoryBudgets(const MemoryBudgets & budgets) {
    NBX::MainMemoryManager::instance()->setBudget(budgets.main << 20U);
    NBX::GraphicsMemoryManager::instance()->setBudget(budgets.graphics << 20U);
}
