#include "terrainfileformat.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "tileblock.h"

namespace ZMT::CORE::GRID::TerrainFileFormat {

// The records are copied as they lie in memory.
static_assert(std::endian::native == std::endian::little);

FileHeader FileHeader::blank() {
    FileHeader header{};
    std::memcpy(header.magic, fileMagic, sizeof header.magic);
    return header;
}

bool FileHeader::isSound(std::uint64_t fileSize) const {
    if (std::memcmp(magic, fileMagic, sizeof magic) != 0 || reserved0 != 0) return false;
    if (dataSize > fileSize || tileLevel > maxTileLevel) return false;
    if (treeDepth > maxExtentLevel - tileLevel || !isPossibleTile(root, tileLevel, dataSize)) return false;
    const std::uint64_t mostSamples = (std::uint64_t(1) << (tileLevel + treeDepth)) + 1;
    if (sizeX == 0 || sizeY == 0 || sizeX > mostSamples || sizeY > mostSamples) return false;
    const auto isSize = [](double value) { return value > 0.0 && std::isnormal(value); };
    // The product is the matrix's determinant.
    return isSize(cellSizeX) && isSize(cellSizeY) && isSize(heightScale) &&
           isSize(cellSizeX * cellSizeY * heightScale) && std::isfinite(originX) && std::isfinite(originY) &&
           std::isfinite(minHeight) && std::isfinite(originX + sizeX * cellSizeX) &&
           std::isfinite(originY + sizeY * cellSizeY) && std::isfinite(minHeight + maxHeight * heightScale);
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

bool TileHeader::isSound(const TilePlace & expected, const GridBox & limits) const {
    if (std::memcmp(magic, tileMagic, sizeof magic) != 0 || reserved0 != 0 || !(place == expected))
        return false;
    if (sampleCount != TerrainFileFormat::sampleCount(place.tileLevel)) return false;
    for (unsigned axis = 0; axis < 3; ++axis)
        if (box.min[axis] > box.max[axis]) return false;
    if (!expected.box().contains(box) || !limits.contains(box)) return false;
    return place.depth > 0 || std::none_of(children.begin(), children.end(),
                                           [](const TileRef & child) { return child.isBlock(); });
}

bool isPossibleTile(const TileRef & ref, std::uint32_t tileLevel, std::uint64_t dataSize) {
    return ref.rawSize == blockSize(tileLevel) && TileBlock::isPossible(ref, dataSize, sizeof(FileHeader));
}

} // namespace ZMT::CORE::GRID::TerrainFileFormat
