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
    bool isOfCity = false;      ///< which `TTTMemoryController::tryAgain` reaches

    /// A paging file that could not be opened is not tried again before somebody asks for it.
    bool waitsForRequest() const { return isOfCity && size == 0; }
};

/// Of all terrains and textures of the process whose last read failed, in the order of files and places.
std::vector<ReadFailure> readFailures();

/// All of them in one line: how many, why the first, and when one is tried again. Empty without any.
std::string summaryOf(const std::vector<ReadFailure> & failures);

/// For a picture whose streamed files are read no further, and that lacks so many of their tiles: says what
/// could not be read, or that of `terrain` nothing more came. A warning where incomplete pictures are
/// allowed, otherwise a `DataError`.
void giveUpPicture(unsigned missingTiles, const std::string & terrain, bool allowsIncomplete);
