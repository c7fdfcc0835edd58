#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace NBX {

/// Bytes in blocks of one size, the last one shorter, each behind the number of bytes that it is stored in:
/// deflated, or as it is where that number is its size. May be used from any thread.
///
/// A block is stored in at least one byte for `s_mostRatio` of its own, so that what a file inflates to stays
/// in proportion to the file.
class DeflatedBlocks {
public:
    static constexpr std::uint64_t s_blockBytes = 1U << 20U;
    static constexpr std::uint64_t s_mostRatio = 64;

    /// One block, of at most `s_blockBytes`.
    static void append(std::vector<std::uint8_t> & out, const std::uint8_t * bytes, std::size_t size);
    /// The `size` bytes of all blocks, which fill `stored` bytes exactly; null for any others. Takes memory
    /// only once the blocks' sizes have been found to fit.
    static std::unique_ptr<std::uint8_t[]> inflate(const std::uint8_t * blocks, std::uint64_t stored,
                                                   std::uint64_t size);
};

} // namespace NBX
