#pragma once

/// What the process may keep of what can be made or read again, in MiB.
struct MemoryBudgets {
    static constexpr unsigned s_largest = 4095;

    unsigned main = 512;     ///< heights and images
    unsigned graphics = 256; ///< buffers and textures
};

/// Throws `UsageError` for what is not from 1 to `s_largest`.
void checkMemoryBudgets(const MemoryBudgets & budgets);
/// Gives them to the managers of the engine.
void applyMemoryBudgets(const MemoryBudgets & budgets);
/// What those have.
MemoryBudgets presentMemoryBudgets();
