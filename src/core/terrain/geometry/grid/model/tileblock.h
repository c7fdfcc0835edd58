#pragma once

#include <cstdint>

#include <nbx/data/dataresource.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/model/tileref.h>

namespace NBX {
class File;
}

/// The blocks of streaming files, whatever they hold: plain or deflated, one behind the other, each at a
/// multiple of 16.
namespace ZMT::CORE::GRID::TileBlock {

/// Blocks begin at multiples of this.
constexpr std::uint64_t alignment = 16;

/// Zeros between a position and the next multiple of `alignment`.
constexpr unsigned padding(std::uint64_t position) {
    return static_cast<unsigned>((alignment - position % alignment) % alignment);
}

/// Deflating pays below 0.8 times the raw size.
constexpr bool isWorthDeflating(std::uint32_t rawSize, std::uint32_t deflatedSize) {
    return std::uint64_t(5) * deflatedSize < std::uint64_t(4) * rawSize;
}

/// The zlib stream of a block, at a level of `NBX::ZLibFilter`; null where the block is to be stored plain.
/// Any thread.
NBX::SO<NBX::DataResource> deflated(const void * raw, std::uint32_t rawSize, unsigned level);

/// Writes a block of `rawSize` bytes, which is stored as the `storedSize` bytes at `stored`, at the position
/// of `file`, and zeros up to the next multiple of 16. Offsets count from `base` on. Throws
/// `NBX::IOException`.
TileRef append(NBX::File & file, std::uint64_t base, const void * stored, std::uint32_t storedSize,
               std::uint32_t rawSize);

/// Why no block can lie at `ref`, in a stream of `streamSize` bytes behind a header of `headerSize` bytes:
/// it has to lie inside of it, and be neither shorter nor longer than deflating can make it. Null for a block
/// that may lie there.
const char * fault(const TileRef & ref, std::uint64_t streamSize, std::uint32_t headerSize);

/// Whether `ref` names a block, without such a fault.
bool isPossible(const TileRef & ref, std::uint64_t streamSize, std::uint32_t headerSize);

/// The block that `stored` holds: itself where it is stored plain. Null when it has another length than
/// `ref.storedSize`, or does not inflate to exactly `ref.rawSize` bytes. Takes no memory that `stored`
/// could not justify. `usedSize`, where given, becomes the length of the zlib stream, which may end before
/// the stored bytes do, or of the plain block. Any thread.
NBX::SO<NBX::DataResource> inflated(const TileRef & ref, const NBX::SO<NBX::DataResource> & stored,
                                    unsigned * usedSize = nullptr);

} // namespace ZMT::CORE::GRID::TileBlock
