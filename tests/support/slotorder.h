#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include <gtest/gtest.h>

/// Whether the virtual operations stand in the table of their class in the order given: those who were built
/// with a class call its operations by their places.
template <class... Operation> testing::AssertionResult inSlotOrder(Operation... operations) {
    // A pointer to a virtual member holds the offset in the table in its first word, as the common C++ ABI
    // says.
    const auto slotOf = [](auto operation) {
        std::uintptr_t word = 0;
        std::memcpy(&word, &operation, sizeof word);
        return word / sizeof(void *);
    };
    constexpr std::uintptr_t mostSlots = 1000;
    const std::array<std::uintptr_t, sizeof...(Operation)> slots{slotOf(operations)...};
    for (std::size_t i = 0; i < slots.size(); ++i) {
        if (slots[i] >= mostSlots)
            return testing::AssertionFailure() << "operation " << i << " is not virtual";
        if (i > 0 && slots[i] <= slots[i - 1])
            return testing::AssertionFailure()
                   << "operation " << i << " has slot " << slots[i] << " behind slot " << slots[i - 1];
    }
    return testing::AssertionSuccess();
}
