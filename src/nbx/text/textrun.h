#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace NBX {

/// A part of a line of one direction and script.
struct TextRun {
    std::size_t begin, end;
    bool rightToLeft;
    unsigned script; ///< four letters of ISO 15924, the first one highest
};

/// The runs of a line, which has no breaks, in the order in which they stand from left to right. The whole
/// line goes in the direction of its first letter that has one, else from left to right.
std::vector<TextRun> runsFromLeftToRight(std::u32string_view line);

} // namespace NBX
