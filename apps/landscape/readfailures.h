#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A part of a streamed file that could not be read.
struct ReadFailure {
    std::string file;           ///< as `shownName` gives it
    std::uint64_t offset, size; ///< of the range in bytes
    std::string reason;         ///< one line
    double secondsToRetry;      ///< until it may be asked for again; 0 when that is now
};

/// Of all terrains and textures of the process whose last read failed, in the order of files and places.
std::vector<ReadFailure> readFailures();

/// All of them in one line: how many, why the first, and when one is tried again. Empty without any.
std::string summaryOf(const std::vector<ReadFailure> & failures);
