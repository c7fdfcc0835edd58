#pragma once

/// What the process may keep of what can be made or read again, in MiB.
struct MemoryBudgets {
    static constexpr unsigned s_largest = 4095;

    unsigned main = 512;     ///< heights and images
    unsigned graphics = 256; ///< buffers and textures
    unsigned city = 1024;    ///< textures of cities, decoded and on the card
    unsigned overlay = 256;  ///< textures of overlays
};

/// Throws `UsageError` for what is not from 1 to `s_largest`.
void checkMemoryBudgets(const MemoryBudgets & budgets);
/// Gives them to the managers of the engine.
void applyMemoryBudgets(const MemoryBudgets & budgets);
/// What those have.
MemoryBudgets presentMemoryBudgets();

/// What is let go of goes back to the system, which costs a little time: for programs that stream for hours.
/// By default the heap keeps room for it, in pieces that are ever harder to use again. Before anything is
/// drawn.
void giveMemoryBack();
