#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ZMT::RASTER {

/// A moment as ISO 8601 writes it, in seconds since the beginning of 1970, UTC, without leap seconds.
class IsoTime {
public:
    /// "2024-05-01T12:30:00.25+05:45": a date, and behind "T" or a blank hours and minutes, seconds with any
    /// fraction behind a point or a comma, and "Z" or how far the zone is ahead of UTC. What is left out at
    /// the end is 0, and the zone UTC. The short form without hyphens and colons is read, too. None for
    /// anything else, dates and hours that do not exist included. A second 60 is the one behind it.
    static std::optional<double> parse(std::string_view text);
    /// In UTC, to milliseconds where it has such. Empty for what is not finite or no year of four digits.
    static std::string text(double time);
};

} // namespace ZMT::RASTER
