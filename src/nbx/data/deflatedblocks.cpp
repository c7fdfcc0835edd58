#include "deflatedblocks.h"

#include <algorithm>
#include <cstring>

#include <nbx/data/dataresource.h>
#include <nbx/data/zlibfilter.h>

namespace NBX {

namespace {

constexpr unsigned s_level = 6;

std::uint64_t fewestBytes(std::uint64_t size) {
    return (size + DeflatedBlocks::s_mostRatio - 1) / DeflatedBlocks::s_mostRatio;
}

/// The size in front of a block.
std::uint32_t storedSizeAt(const std::uint8_t * at) {
    std::uint32_t size = 0;
    std::memcpy(&size, at, sizeof size);
    return size;
}

bool areSound(const std::uint8_t * at, std::uint64_t stored, std::uint64_t size) {
    while (size > 0) {
        const std::uint64_t block = std::min(size, DeflatedBlocks::s_blockBytes);
        if (stored < sizeof(std::uint32_t)) return false;
        const std::uint32_t bytes = storedSizeAt(at);
        stored -= sizeof bytes;
        if (bytes > stored || bytes > block || bytes < fewestBytes(block)) return false;
        at += sizeof bytes + bytes;
        stored -= bytes;
        size -= block;
    }
    return stored == 0;
}

} // namespace

void DeflatedBlocks::append(std::vector<std::uint8_t> & out, const std::uint8_t * bytes, std::size_t size) {
    const SO<DataResource> deflated = ZLibFilter::compress(bytes, static_cast<unsigned>(size), s_level);
    const bool isSmaller = deflated && deflated->size() < size;
    const auto * const content = isSmaller ? static_cast<const std::uint8_t *>(deflated->pointer()) : bytes;
    const std::size_t contentBytes = isSmaller ? deflated->size() : size;
    const auto stored = std::max<std::uint32_t>(static_cast<std::uint32_t>(contentBytes),
                                                static_cast<std::uint32_t>(fewestBytes(size)));
    const auto * const head = reinterpret_cast<const std::uint8_t *>(&stored);
    out.insert(out.end(), head, head + sizeof stored);
    out.insert(out.end(), content, content + contentBytes);
    out.resize(out.size() + stored - contentBytes); // zeros behind the end of the deflated bytes
}

std::unique_ptr<std::uint8_t[]> DeflatedBlocks::inflate(const std::uint8_t * blocks, std::uint64_t stored,
                                                        std::uint64_t size) {
    if (!areSound(blocks, stored, size)) return nullptr;
    auto result = std::make_unique_for_overwrite<std::uint8_t[]>(size);
    for (std::uint64_t done = 0; done < size;) {
        const std::uint64_t block = std::min(size - done, s_blockBytes);
        const std::uint32_t bytes = storedSizeAt(blocks);
        blocks += sizeof bytes;
        if (bytes == block)
            std::memcpy(result.get() + done, blocks, bytes);
        else if (!ZLibFilter::uncompress(blocks, bytes, result.get() + done, static_cast<unsigned>(block)))
            return nullptr;
        blocks += bytes;
        done += block;
    }
    return result;
}

} // namespace NBX
