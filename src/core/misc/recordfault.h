#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ZMT::CORE {

/// What is wrong with a field of a record that stands in a file.
struct RecordFault {
    std::size_t offset; ///< of the field, in bytes from the start of the record
    std::string what;   ///< such as "the level is 9, and may be 7 at most"
};

/// All that is wrong with a record; none for one that is sound.
using RecordFaults = std::vector<RecordFault>;

/// Notes the first byte of a field that has to be zero and is not; `offset` is that of the field.
template <std::size_t Size>
void noteNonZero(const std::uint8_t (&field)[Size], std::size_t offset, RecordFaults & faults) {
    const auto * const first = std::find_if(field, field + Size, [](std::uint8_t byte) { return byte != 0; });
    if (first != field + Size)
        faults.push_back(
            {offset + static_cast<std::size_t>(first - field), "a byte that has no meaning is not zero"});
}

} // namespace ZMT::CORE
