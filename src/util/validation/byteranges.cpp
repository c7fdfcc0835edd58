#include "byteranges.h"

#include <algorithm>
#include <iterator>

namespace ZMT::UTIL {

bool ByteRanges::isFree(std::uint64_t begin, std::uint64_t end) const {
    const auto next = ends_.upper_bound(begin);
    if (next != ends_.end() && next->first < end) return false;
    return next == ends_.begin() || std::prev(next)->second <= begin;
}

void ByteRanges::take(std::uint64_t begin, std::uint64_t end) {
    if (begin >= end) return;
    auto next = ends_.upper_bound(begin);
    if (next != ends_.end() && next->first == end) {
        end = next->second;
        next = ends_.erase(next);
    }
    if (next != ends_.begin() && std::prev(next)->second == begin)
        std::prev(next)->second = end;
    else
        ends_.emplace_hint(next, begin, end);
}

void ByteRanges::forEachGap(std::uint64_t begin, std::uint64_t end,
                            const std::function<void(std::uint64_t, std::uint64_t)> & visit) const {
    std::uint64_t position = begin;
    for (const auto & [first, last] : ends_) {
        if (position < first && position < end) visit(position, std::min(first, end));
        position = std::max(position, last);
    }
    if (position < end) visit(position, end);
}

} // namespace ZMT::UTIL
