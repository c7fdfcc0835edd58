#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "core/misc/recordfault.h"

namespace ZMT::UTIL::TexturePyramidFormat {

constexpr std::size_t headerSize = 256;
constexpr std::uint32_t pyramidVersion = 1;
constexpr std::uint32_t levelVersion = 3;
constexpr unsigned tileSide = 256;
constexpr unsigned lastTileSide = 128;

/// The records as they stand in the file, little-endian.
struct PyramidHeader {
    char magic[32];
    std::uint32_t version;
    std::uint32_t levels;
    double minX, minY, maxX, maxY;
    unsigned char reserved[184];

    /// What is wrong, whatever lies behind.
    CORE::RecordFaults faults() const;
};
static_assert(sizeof(PyramidHeader) == headerSize);

struct LevelHeader {
    char magic[32];
    std::uint32_t version;
    std::uint32_t pixelsX, pixelsY;
    std::uint32_t tileWidth, tileHeight;
    std::uint32_t tilesX, tilesY;
    std::uint32_t pixelFormat;
    std::uint32_t rawTileSize;
    std::uint32_t compression;
    unsigned char reserved[184];

    /// What is wrong, whatever lies behind; tiles larger than readers take are.
    CORE::RecordFaults faults() const;
    std::uint64_t tiles() const { return std::uint64_t(tilesX) * tilesY; }
    /// Bytes of the tables, both of them, for each tile.
    std::uint64_t bytesPerTile() const { return version >= 2 ? 12 : 8; }
    /// Whether tiles begin with their stored size, for want of a table.
    bool hasSizesInTiles() const { return version == 1 && compression == 1; }
};
static_assert(sizeof(LevelHeader) == headerSize);

constexpr char pyramidMagic[32] = "ZMT-TEXTURE-PYRAMID";
constexpr char levelMagic[32] = "ZMT-TEXTURE-PYRAMID-LEVEL";

/// Scrambles a header, or makes it plain again.
template <class Header> void scramble(Header & header, std::uint64_t key) {
    std::array<std::uint64_t, headerSize / 8> words;
    std::memcpy(words.data(), &header, headerSize);
    for (std::uint64_t & word : words)
        word ^= key;
    std::memcpy(static_cast<void *>(&header), words.data(), headerSize);
}

} // namespace ZMT::UTIL::TexturePyramidFormat
