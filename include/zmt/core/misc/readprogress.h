#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

namespace ZMT::CORE {

/// How far the ranges of a file have come. A transfer that breaks off begins anew: its bytes come again, as
/// do those of a block that is damaged, and that is no progress, however many they are. On the thread of the
/// file; the total may be asked for on any.
class ReadProgress {
public:
    /// So many ranges are known; one more, and all are forgotten.
    static constexpr std::size_t s_mostRanges = 1U << 16;

    /// `count` bytes of the range that begins at `offset` have come in one transfer, those that came before
    /// in it included.
    void note(std::uint64_t offset, std::uint64_t count);

    /// The bytes of all files that were noted for the first time, since the process began.
    static std::uint64_t totalBytes();

private:
    std::unordered_map<std::uint64_t, std::uint64_t> most_; ///< bytes of the longest transfer, by offset
};

} // namespace ZMT::CORE
