#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ZMT::RASTER {

/// How the numbers in the bands of an image become colours.
struct ImageColors {
    enum class Stretch {
        ByType, ///< bands of 8 bits, and those whose file says what is white, as they are; others as `Auto`
        None,   ///< 0 is black, the greatest number of the type is white, for floating point numbers 1
        Auto,   ///< of each band 2 % of its samples are black, and 2 % white
        Range,  ///< from `low` to `high`
    };

    /// Of red, green and blue, or of gray, counted from 1. Without any the file's own names of its bands
    /// decide, or their order where it has none.
    std::vector<unsigned> bands;
    Stretch stretch = Stretch::ByType;
    /// What is black and what is white, as the file stores its numbers; `low` is below `high`.
    double low = 0.0, high = 0.0;
    /// Above 0; more is brighter, black and white stay.
    double gamma = 1.0;

    // What a text says; false, and nothing is changed, for one that says nothing.

    /// "R,G,B" or a single number, from 1 on.
    bool setBands(const std::string & text);
    /// "auto", "none" or "MIN,MAX".
    bool setStretch(const std::string & text);
    /// A number above 0, at most 100.
    bool setGamma(const std::string & text);

    /// All of it in one line; empty for what is usual.
    std::string text() const;
    /// Undoes `text`; nothing for any other one.
    static std::optional<ImageColors> parse(const std::string & text);
};

} // namespace ZMT::RASTER
