#include "tileblock.h"

#include <cstddef>

#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/data/zlibfilter.h>

namespace ZMT::CORE::GRID {

// A reference stands in files as it stands in memory.
static_assert(sizeof(TileRef) == TileRef::storedBytes && offsetof(TileRef, rawSize) == 8 &&
              offsetof(TileRef, storedSize) == 12);

namespace TileBlock {

namespace {

/// No zlib stream inflates to more than so many bytes for each of its own.
constexpr std::uint64_t s_mostInflation = 1032;

/// A zlib stream of what does not deflate is longer than that by less: five bytes for each piece of some
/// kilobytes, and a frame.
constexpr std::uint64_t mostStored(std::uint64_t rawSize) {
    return rawSize + rawSize / 512 + 64;
}

bool canInflate(const TileRef & ref) {
    return ref.rawSize / s_mostInflation <= ref.storedSize;
}

} // namespace

NBX::SO<NBX::DataResource> deflated(const void * raw, std::uint32_t rawSize, unsigned level) {
    const NBX::SO<NBX::DataResource> result = NBX::ZLibFilter::compress(raw, rawSize, level);
    return result && isWorthDeflating(rawSize, result->size()) ? result : nullptr;
}

TileRef append(NBX::File & file, std::uint64_t base, const void * stored, std::uint32_t storedSize,
               std::uint32_t rawSize) {
    static constexpr char zeros[alignment] = {};
    const TileRef ref{file.position() - base, rawSize, storedSize};
    file.write(stored, storedSize);
    file.write(zeros, padding(file.position()));
    return ref;
}

const char * fault(const TileRef & ref, std::uint64_t streamSize, std::uint32_t headerSize) {
    if (ref.storedSize == 0) return "takes no bytes";
    if (ref.offset < headerSize) return "begins inside of the header";
    if (ref.offset > streamSize || ref.storedSize > streamSize - ref.offset) return "reaches beyond the end";
    if (ref.storedSize > mostStored(ref.rawSize)) return "is longer than its contents make it";
    return canInflate(ref) ? nullptr : "is too short for its contents";
}

bool isPossible(const TileRef & ref, std::uint64_t streamSize, std::uint32_t headerSize) {
    return ref.isBlock() && !fault(ref, streamSize, headerSize);
}

NBX::SO<NBX::DataResource> inflated(const TileRef & ref, const NBX::SO<NBX::DataResource> & stored,
                                    unsigned * usedSize) {
    if (!stored || stored->size() != ref.storedSize || !canInflate(ref)) return nullptr;
    if (usedSize) *usedSize = ref.storedSize;
    if (ref.rawSize == ref.storedSize) return stored;
    const NBX::SO<NBX::DataResource> raw(new NBX::MemoryDataResource(ref.rawSize));
    const bool isSound =
        NBX::ZLibFilter::uncompress(stored->pointer(), ref.storedSize, raw->pointer(), ref.rawSize, usedSize);
    return isSound ? raw : nullptr;
}

} // namespace TileBlock

} // namespace ZMT::CORE::GRID
