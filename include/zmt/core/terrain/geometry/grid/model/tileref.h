#pragma once

#include <cstdint>

namespace ZMT::CORE::GRID {

/// Where a block of a streaming file lies. As it is stored: 16 bytes, little-endian, in this order.
struct TileRef {
    static constexpr unsigned storedBytes = 16;

    /// Of the block, from the start of the stream.
    std::uint64_t offset = 0;
    /// Length of the block once it is inflated. 0: there is nothing here. 1, in terrains alone: there is no
    /// block, since this place has no detail of its own and is drawn as a part of its parent.
    std::uint32_t rawSize = 0;
    /// Length of the block in the file; it is deflated where this differs from `rawSize`.
    std::uint32_t storedSize = 0;

    bool isBlock() const { return rawSize >= 2; }
    bool operator==(const TileRef &) const = default;
};

} // namespace ZMT::CORE::GRID
