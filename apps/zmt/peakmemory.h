#pragma once

#include <cstdint>

/// The largest amount of memory that the program has used so far.
std::uint64_t peakResidentBytes();
