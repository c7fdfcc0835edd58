#pragma once

#include <cstdint>
#include <functional>
#include <map>

namespace ZMT::UTIL {

/// Which bytes of a file belong to something. Ranges that touch become one, so that a file without gaps takes
/// little memory, however many blocks it has.
class ByteRanges {
public:
    /// Whether nothing has a byte from `begin` up to `end`.
    bool isFree(std::uint64_t begin, std::uint64_t end) const;
    /// These are free. Nothing for an empty range.
    void take(std::uint64_t begin, std::uint64_t end);
    /// Calls `visit` with begin and end of what is free between two positions, in their order.
    void forEachGap(std::uint64_t begin, std::uint64_t end,
                    const std::function<void(std::uint64_t, std::uint64_t)> & visit) const;
    /// Ranges that do not touch.
    std::size_t count() const { return ends_.size(); }

private:
    std::map<std::uint64_t, std::uint64_t> ends_; ///< by their beginnings
};

} // namespace ZMT::UTIL
