// What makes a record sound is said in one place for readers, writers and the validation: each record lists
// its faults, and counts as sound where there is none.

#include "terrainfileformat.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <string>

#include "tileblock.h"

namespace ZMT::CORE::GRID::TerrainFileFormat {

// The records are copied as they lie in memory.
static_assert(std::endian::native == std::endian::little);

namespace {

void noteTreeFaults(const FileHeader & h, RecordFaults & faults) {
    if (h.tileLevel > maxTileLevel) {
        faults.push_back({offsetof(FileHeader, tileLevel),
                          "the level of tiles is " + std::to_string(h.tileLevel) + ", and may be 7 at most"});
        return;
    }
    if (h.treeDepth > maxExtentLevel - h.tileLevel) {
        faults.push_back({offsetof(FileHeader, treeDepth),
                          "the depth is " + std::to_string(h.treeDepth) + ", and may be " +
                              std::to_string(maxExtentLevel - h.tileLevel) + " at most"});
        return;
    }
    const std::uint64_t mostSamples = (std::uint64_t(1) << (h.tileLevel + h.treeDepth)) + 1;
    const auto noteSize = [&](std::uint32_t size, std::size_t offset) {
        if (size == 0 || size > mostSamples)
            faults.push_back({offset, "the size is " + std::to_string(size) + ", and the tree has room for " +
                                          std::to_string(mostSamples)});
    };
    noteSize(h.sizeX, offsetof(FileHeader, sizeX));
    noteSize(h.sizeY, offsetof(FileHeader, sizeY));
    if (!isPossibleTile(h.root, h.tileLevel, h.dataSize))
        faults.push_back({offsetof(FileHeader, root), "the root is no block that can lie in this file"});
}

void noteScaleFaults(const FileHeader & h, RecordFaults & faults) {
    const auto isSize = [](double value) { return value > 0.0 && std::isnormal(value); };
    const auto note = [&](bool isSound, std::size_t offset, const char * what) {
        if (!isSound) faults.push_back({offset, what});
    };
    note(isSize(h.cellSizeX), offsetof(FileHeader, cellSizeX), "the cell size is no size");
    note(isSize(h.cellSizeY), offsetof(FileHeader, cellSizeY), "the cell size is no size");
    note(isSize(h.heightScale), offsetof(FileHeader, heightScale), "the height scale is no size");
    note(std::isfinite(h.originX), offsetof(FileHeader, originX), "the origin is no number");
    note(std::isfinite(h.originY), offsetof(FileHeader, originY), "the origin is no number");
    note(std::isfinite(h.minHeight), offsetof(FileHeader, minHeight), "the least height is no number");
    if (!faults.empty()) return;
    // The product is the matrix's determinant.
    note(isSize(h.cellSizeX * h.cellSizeY * h.heightScale), offsetof(FileHeader, cellSizeX),
         "the volume of a cell is no number");
    note(std::isfinite(h.originX + h.sizeX * h.cellSizeX), offsetof(FileHeader, originX),
         "the eastern end is no number");
    note(std::isfinite(h.originY + h.sizeY * h.cellSizeY), offsetof(FileHeader, originY),
         "the northern end is no number");
    note(std::isfinite(h.minHeight + maxHeight * h.heightScale), offsetof(FileHeader, minHeight),
         "the largest height is no number");
}

std::string text(const TilePlace & place) {
    return "level " + std::to_string(place.tileLevel) + ", depth " + std::to_string(place.depth) + ", at " +
           std::to_string(place.tileX) + ", " + std::to_string(place.tileY);
}

} // namespace

FileHeader FileHeader::blank() {
    FileHeader header{};
    std::memcpy(header.magic, fileMagic, sizeof header.magic);
    return header;
}

RecordFaults FileHeader::faults(std::uint64_t fileSize) const {
    RecordFaults faults;
    if (std::memcmp(magic, fileMagic, sizeof magic) != 0) return {{0, "the magic is no \"ZMT-AQTG\""}};
    if (reserved0 != 0) faults.push_back({offsetof(FileHeader, reserved0), "the reserved number is not 0"});
    if (dataSize > fileSize)
        faults.push_back({offsetof(FileHeader, dataSize), "the blocks end at " + std::to_string(dataSize) +
                                                              ", and the file at " +
                                                              std::to_string(fileSize)});
    noteTreeFaults(*this, faults);
    noteScaleFaults(*this, faults);
    return faults;
}

NBX::Matrix4x4Base<double> FileHeader::gridToGeo() const {
    return NBX::Matrix4x4Base<double>({cellSizeX, 0.0, 0.0, originX,                   //
                                       0.0, 0.0, heightScale, minHeight - heightScale, //
                                       0.0, cellSizeY, 0.0, originY,                   //
                                       0.0, 0.0, 0.0, 1.0});
}

NBX::Bounds FileHeader::gridBounds() const {
    return {{0.0, 0.0, 1.0}, {double(sizeX), double(sizeY), double(maxHeight)}};
}

bool GridBox::contains(const GridBox & other) const {
    for (unsigned axis = 0; axis < 3; ++axis)
        if (other.min[axis] < min[axis] || other.max[axis] > max[axis]) return false;
    return true;
}

bool GridBox::isInsideOut() const {
    return min[0] > max[0] || min[1] > max[1] || min[2] > max[2];
}

GridBox GridBox::united(const GridBox & other) const {
    GridBox result;
    for (unsigned axis = 0; axis < 3; ++axis) {
        result.min[axis] = std::min(min[axis], other.min[axis]);
        result.max[axis] = std::max(max[axis], other.max[axis]);
    }
    return result;
}

std::string GridBox::text() const {
    const auto corner = [](const std::uint32_t(&c)[3]) {
        return std::to_string(c[0]) + " " + std::to_string(c[1]) + " " + std::to_string(c[2]);
    };
    return corner(min) + " to " + corner(max);
}

NBX::Bounds GridBox::bounds() const {
    return {{double(min[0]), double(min[1]), double(min[2])},
            {double(max[0]), double(max[1]), double(max[2])}};
}

TilePlace TilePlace::child(unsigned index) const {
    return {tileLevel, depth - 1, 2 * tileX + ((index & 1U) << tileLevel),
            2 * tileY + ((index >> 1U & 1U) << tileLevel)};
}

GridBox TilePlace::box() const {
    const std::uint32_t cells = 1U << (tileLevel + depth);
    const std::uint32_t x = tileX << depth, y = tileY << depth;
    return {{x, y, 1}, {x + cells, y + cells, maxHeight}};
}

TileHeader TileHeader::blank(const TilePlace & place) {
    TileHeader header{};
    std::memcpy(header.magic, tileMagic, sizeof header.magic);
    header.place = place;
    header.sampleCount = TerrainFileFormat::sampleCount(place.tileLevel);
    return header;
}

RecordFaults TileHeader::faults(const TilePlace & expected, const GridBox & limits) const {
    if (std::memcmp(magic, tileMagic, sizeof magic) != 0) return {{0, "the magic is no \"ZMT-AQGP\""}};
    if (!(place == expected))
        return {{offsetof(TileHeader, place),
                 "the tile is of " + text(place) + ", and stands for " + text(expected)}};
    RecordFaults faults;
    if (reserved0 != 0) faults.push_back({offsetof(TileHeader, reserved0), "the reserved number is not 0"});
    if (sampleCount != TerrainFileFormat::sampleCount(place.tileLevel))
        faults.push_back({offsetof(TileHeader, sampleCount),
                          "the number of samples is " + std::to_string(sampleCount) + " in place of " +
                              std::to_string(TerrainFileFormat::sampleCount(place.tileLevel))});
    if (box.isInsideOut() || !expected.box().contains(box) || !limits.contains(box))
        faults.push_back(
            {offsetof(TileHeader, box), "the box, " + box.text() + ", is no part of " + limits.text()});
    for (std::size_t i = 0; place.depth == 0 && i < children.size(); ++i)
        if (children[i].isBlock())
            faults.push_back(
                {offsetof(TileHeader, children) + i * sizeof(TileRef), "a tile of depth 0 has a child"});
    return faults;
}

bool isPossibleTile(const TileRef & ref, std::uint32_t tileLevel, std::uint64_t dataSize) {
    return ref.rawSize == blockSize(tileLevel) && TileBlock::isPossible(ref, dataSize, sizeof(FileHeader));
}

} // namespace ZMT::CORE::GRID::TerrainFileFormat
