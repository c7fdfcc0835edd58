#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "core/misc/recordfault.h"
#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <zmt/core/terrain/geometry/grid/model/tileref.h>

/// The records of streaming terrains as they stand in the file, little-endian, and what makes them sound.
namespace ZMT::CORE::GRID::TerrainFileFormat {

constexpr char fileMagic[9] = "ZMT-AQTG";
constexpr char tileMagic[9] = "ZMT-AQGP";
/// Tiles have at most 2^7 cells along a side, since their vertices are counted by 16 bits.
constexpr std::uint32_t maxTileLevel = 7;
/// A terrain has at most 2^31 cells along a side.
constexpr std::uint32_t maxExtentLevel = 31;
constexpr std::uint32_t maxHeight = 65535;

/// In front of all.
struct FileHeader {
    char magic[8];
    std::uint64_t dataSize; ///< of this header and all blocks; a light map begins behind
    std::uint64_t reserved0;
    std::uint32_t sizeX, sizeY; ///< extent in finest cells, plus 1
    std::uint32_t tileLevel;    ///< L
    std::uint32_t treeDepth;    ///< D, the depth number of the root
    double originX, originY;    ///< map position of grid position 0
    double minHeight;           ///< of the quantised value 1
    double cellSizeX, cellSizeY;
    double heightScale; ///< of one quantised unit
    TileRef root;
    std::uint8_t zeros[152];

    /// With the magic, and zeros elsewhere.
    static FileHeader blank();
    /// Why it cannot stand in front of a file of `fileSize` bytes. Numbers that give no matrix, and a root
    /// that cannot be a block of this level, are refused as well.
    RecordFaults faults(std::uint64_t fileSize) const;
    bool isSound(std::uint64_t fileSize) const { return faults(fileSize).empty(); }
    /// From grid to geo coordinates: heights become the second coordinate.
    NBX::Matrix4x4Base<double> gridToGeo() const;
    /// (0, 0, 1) to (`sizeX`, `sizeY`, 65535).
    NBX::Bounds gridBounds() const;
};
static_assert(sizeof(FileHeader) == 256 && offsetof(FileHeader, sizeX) == 24 &&
              offsetof(FileHeader, originX) == 40 && offsetof(FileHeader, root) == 88);

/// A box in grid space: finest cells in x and y, quantised heights.
struct GridBox {
    std::uint32_t min[3], max[3];

    bool operator==(const GridBox &) const = default;
    bool contains(const GridBox & other) const;
    bool isInsideOut() const;
    /// The least box that contains both.
    GridBox united(const GridBox & other) const;
    NBX::Bounds bounds() const;
    /// As people read it: "0 0 1 to 64 64 4000".
    std::string text() const;
};

/// Where a tile lies.
struct TilePlace {
    std::uint32_t tileLevel, depth;
    std::uint32_t tileX, tileY; ///< of the first sample, in steps of 2^depth cells

    bool operator==(const TilePlace &) const = default;
    /// Only of places with `depth > 0`.
    TilePlace child(unsigned index) const;
    /// The square that the tile covers, with all heights there are.
    GridBox box() const;
};

/// In front of the samples of a tile.
struct TileHeader {
    char magic[8];
    std::uint64_t reserved0;
    TilePlace place;
    GridBox box; ///< of the defined samples of the tile and all below it
    std::uint32_t sampleCount;
    std::uint32_t zero;
    std::array<TileRef, 4> children;

    /// With magic, place and sample count, and zeros elsewhere.
    static TileHeader blank(const TilePlace & place);
    /// Why it cannot belong to the tile at `expected`, whose samples lie inside `limits`.
    RecordFaults faults(const TilePlace & expected, const GridBox & limits) const;
    bool isSound(const TilePlace & expected, const GridBox & limits) const {
        return faults(expected, limits).empty();
    }
};
static_assert(sizeof(TileHeader) == 128 && offsetof(TileHeader, place) == 16 &&
              offsetof(TileHeader, box) == 32 && offsetof(TileHeader, sampleCount) == 56 &&
              offsetof(TileHeader, children) == 64);

/// 2^L + 1
constexpr std::uint32_t samplesPerSide(std::uint32_t tileLevel) {
    return (1U << tileLevel) + 1;
}
/// Values of row `k` of the table of a border.
constexpr std::uint32_t borderRowSize(std::uint32_t tileLevel, std::uint32_t k) {
    return (1U << (tileLevel - k)) + 1;
}
/// Values in the table of one border.
constexpr std::uint32_t borderTableSize(std::uint32_t tileLevel) {
    return (2U << tileLevel) + tileLevel - 2;
}
/// Where row `k` of the table of border `b`, 0 to 3, begins among the samples.
constexpr std::uint32_t borderRowStart(std::uint32_t tileLevel, std::uint32_t b, std::uint32_t k) {
    const std::uint32_t side = samplesPerSide(tileLevel);
    // The rows before: the sum of 2^(L-j) + 1 for j < k.
    const std::uint32_t before = (2U << tileLevel) - (2U << (tileLevel - k)) + k;
    return side * side + b * borderTableSize(tileLevel) + before;
}
constexpr std::uint32_t sampleCount(std::uint32_t tileLevel) {
    return samplesPerSide(tileLevel) * samplesPerSide(tileLevel) + 4 * borderTableSize(tileLevel);
}
/// Of a tile's block before it is deflated.
constexpr std::uint32_t blockSize(std::uint32_t tileLevel) {
    return static_cast<std::uint32_t>(sizeof(TileHeader)) + 2 * sampleCount(tileLevel);
}

/// Whether a tile of the level may lie at `ref`, in a file whose tiles end at `dataSize`.
bool isPossibleTile(const TileRef & ref, std::uint32_t tileLevel, std::uint64_t dataSize);

} // namespace ZMT::CORE::GRID::TerrainFileFormat
