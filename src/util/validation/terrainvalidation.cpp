// A tile is held against what is around it: its borders against the tiles above, its box against its samples
// and the boxes below. Boxes below count as they should be, not as they are stated, so that a single wrong
// one is told once.

#include "terrainvalidation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "blockwalk.h"
#include "core/terrain/geometry/grid/creation/tilesamples.h"
#include "core/terrain/geometry/grid/model/terrainfileformat.h"
#include "core/terrain/geometry/grid/model/tileblock.h"
#include "texturevalidation.h"

namespace ZMT::UTIL {

namespace {

using namespace CORE::GRID;
using namespace CORE::GRID::TerrainFileFormat;
namespace TextureFormat = CORE::StreamingTextureFormat;

/// A box that holds nothing.
constexpr GridBox s_nothing{{UINT32_MAX, UINT32_MAX, UINT32_MAX}, {0, 0, 0}};
/// Of a cell: places that differ by less are the same.
constexpr double s_samePlace = 1e-6;

/// A tile on the way from the root.
struct Tile {
    BlockStream::Named named;
    TilePlace place;
    std::shared_ptr<Tile> parent; ///< null for the root
    TileSamples samples;          ///< empty where nothing is defined
    GridBox stated{};             ///< the box in the block
    /// What the box has to hold, and what it may hold at most: of children without a block only the place is
    /// known.
    GridBox least = s_nothing, most = s_nothing;
    bool isRead = false;

    void addBelow(const GridBox & box) {
        least = least.united(box);
        most = most.united(box);
    }
    /// What takes an unknown part of `square`.
    void addUnknown(const GridBox & square) { most = most.united(square); }
};

std::string nameOf(const TilePlace & place) {
    return "the tile of depth " + std::to_string(place.depth) + " at " + std::to_string(place.tileX) + ", " +
           std::to_string(place.tileY);
}

bool overlapInPlane(const GridBox & a, const GridBox & b) {
    return a.min[0] < b.max[0] && b.min[0] < a.max[0] && a.min[1] < b.max[1] && b.min[1] < a.max[1];
}

/// Whether a cell inside of a quarter, off its border, is defined at all four corners: whatever the levels
/// below have between, it is something.
bool hasWholeCell(const TileSamples & samples, unsigned quarter) {
    if (!samples.isDefined()) return false;
    const std::uint32_t side = samplesPerSide(samples.place.tileLevel), half = (side - 1) / 2;
    const std::uint32_t x0 = quarter & 1U ? half : 0, y0 = quarter & 2U ? half : 0;
    for (std::uint32_t y = y0 + 1; y + 1 < y0 + half; ++y)
        for (std::uint32_t x = x0 + 1; x + 1 < x0 + half; ++x) {
            const std::uint16_t * south = samples.values() + std::size_t(y) * side + x;
            if (south[0] != 0 && south[1] != 0 && south[side] != 0 && south[side + 1] != 0) return true;
        }
    return false;
}

/// Of the first number of `box` that is not between those of two others: 0 to 5, and 6 for none.
unsigned firstOutside(const GridBox & box, const GridBox & least, const GridBox & most) {
    for (unsigned i = 0; i < 6; ++i) {
        const unsigned axis = i % 3;
        const bool isInside = i < 3 ? box.min[axis] >= most.min[axis] && box.min[axis] <= least.min[axis]
                                    : box.max[axis] <= most.max[axis] && box.max[axis] >= least.max[axis];
        if (!isInside) return i;
    }
    return 6;
}

class TerrainWalk : BlockWalk<Tile> {
public:
    TerrainWalk(CheckedFile & file, ValidationReport & report, const FileHeader & header)
        : BlockWalk<Tile>(blocks_), file_(file), report_(report), header_(header),
          blocks_(file, 0, header.dataSize, 0) {}

    void run() {
        const auto root = std::make_shared<Tile>();
        root->place = {header_.tileLevel, header_.treeDepth, 0, 0};
        root->named = {header_.root, offsetof(FileHeader, root), nameOf(root->place), header_.dataSize, {}};
        push(root);
        walk();
        blocks_.noteGaps();
    }

private:
    void fault(const Tile & tile, std::size_t offset, const std::string & what);
    void open(const Pointer & tile) override;
    void close(Tile & tile) override;
    bool checkHeader(const Tile & tile, const TileHeader & header);
    void checkSamples(Tile & tile);
    void checkBorders(const Tile & tile);
    void checkChild(const Pointer & tile, const TileRef & ref, unsigned index);
    void checkEmptyChild(Tile & tile, const TileRef & ref, unsigned index);
    void checkSizes(const GridBox & box);

    CheckedFile & file_;
    ValidationReport & report_;
    const FileHeader & header_;
    BlockStream blocks_;
};

void TerrainWalk::fault(const Tile & tile, std::size_t offset, const std::string & what) {
    file_.fault(blocks_.position(tile.named.ref, offset), tile.named.name + ": " + what);
}

void TerrainWalk::open(const Pointer & tile) {
    TileHeader header;
    const NBX::SO<NBX::DataResource> raw = blocks_.read(tile->named);
    if (raw) std::memcpy(static_cast<void *>(&header), raw->pointer(), sizeof header);
    if (!raw || !checkHeader(*tile, header)) {
        if (tile->parent) tile->parent->addUnknown(tile->place.box());
        return;
    }
    blocks_.take(tile->named);
    ++report_.tiles;
    tile->isRead = true;
    tile->stated = header.box;
    tile->samples.place = tile->place;
    tile->samples.block.resize(raw->size() / 2);
    std::memcpy(tile->samples.block.data(), raw->pointer(), raw->size());
    checkSamples(*tile);
    checkBorders(*tile);
    for (unsigned i = 0; i < header.children.size(); ++i)
        checkChild(tile, header.children[i], i);
}

/// False where the block is that of another tile, or none at all.
bool TerrainWalk::checkHeader(const Tile & tile, const TileHeader & header) {
    const bool isOwn =
        std::memcmp(header.magic, tileMagic, sizeof header.magic) == 0 && header.place == tile.place;
    const std::string name = isOwn ? tile.named.name : tile.named.fullName();
    for (const CORE::RecordFault & found : header.faults(tile.place, tile.place.box()))
        file_.fault(blocks_.position(tile.named.ref, found.offset), name + ": " + found.what);
    if (!isOwn) {
        file_.noteUnseen();
        return false;
    }
    if (header.zero != 0) fault(tile, offsetof(TileHeader, zero), "a number that has no meaning is not zero");
    return true;
}

void TerrainWalk::checkSamples(Tile & tile) {
    tile.samples.findBox();
    if (tile.samples.isDefined())
        tile.addBelow(tile.samples.box);
    else
        fault(tile, sizeof(TileHeader), "no sample is defined");
}

void TerrainWalk::checkBorders(const Tile & tile) {
    if (!tile.samples.isDefined()) return;
    const std::uint32_t level = tile.place.tileLevel, first = borderRowStart(level, 0, 0);
    TileSamples expected = tile.samples;
    std::fill(expected.values() + first, expected.values() + sampleCount(level), std::uint16_t(0));
    const Tile * above = &tile;
    for (std::uint32_t k = 0; k < level && above; ++k, above = above->parent.get())
        expected.setBorders(k, above->samples);
    const std::uint16_t * const end = tile.samples.values() + sampleCount(level);
    const auto [is, shouldBe] = std::mismatch(tile.samples.values() + first, end, expected.values() + first);
    if (is == end) return;
    const auto index = static_cast<std::uint32_t>(is - tile.samples.values());
    const std::uint32_t border = (index - first) / borderTableSize(level);
    std::uint32_t row = level - 1;
    while (borderRowStart(level, border, row) > index)
        --row;
    fault(tile, sizeof(TileHeader) + 2 * std::size_t(index),
          "row " + std::to_string(row) + " of border " + std::to_string(border) + " has " +
              std::to_string(*is) + " at " + std::to_string(index - borderRowStart(level, border, row)) +
              ", and " + (row == 0 ? "its edge" : "the tile " + std::to_string(row) + " levels above") +
              " has " + std::to_string(*shouldBe));
}

void TerrainWalk::checkChild(const Pointer & tile, const TileRef & ref, unsigned index) {
    if (tile->place.depth == 0 || !ref.isBlock()) return checkEmptyChild(*tile, ref, index);
    const auto child = std::make_shared<Tile>();
    child->place = tile->place.child(index);
    child->parent = tile;
    const std::size_t offset = offsetof(TileHeader, children) + index * sizeof(TileRef);
    child->named = {
        ref, blocks_.position(tile->named.ref, offset), nameOf(child->place), tile->named.ref.offset, {}};
    const std::uint32_t size = blockSize(header_.tileLevel);
    if (ref.rawSize != size) {
        fault(*tile, offset,
              "child " + std::to_string(index) + " has " + std::to_string(ref.rawSize) +
                  " bytes in place of " + std::to_string(size));
        file_.noteUnseen();
    } else if (push(child)) {
        return;
    }
    tile->addUnknown(child->place.box());
}

void TerrainWalk::checkEmptyChild(Tile & tile, const TileRef & ref, unsigned index) {
    const std::size_t offset = offsetof(TileHeader, children) + index * sizeof(TileRef);
    const std::string name = "child " + std::to_string(index);
    if (tile.place.depth == 0) {
        if (!ref.isBlock() && (ref.rawSize != 0 || ref.offset != 0 || ref.storedSize != 0))
            fault(tile, offset, "a tile of depth 0 has a child");
        return;
    }
    if (ref.offset != 0 || ref.storedSize != 0)
        fault(tile, offset, name + " is no block, and has a place or a size");
    const GridBox square = tile.place.child(index).box();
    if (ref.rawSize == 0) {
        if (hasWholeCell(tile.samples, index))
            fault(tile, offset, name + " has nothing where the tile has heights");
        return;
    }
    tile.addUnknown(square);
    if (!overlapInPlane(square, tile.stated))
        fault(tile, offset, name + " has heights outside of the box of the tile");
}

void TerrainWalk::close(Tile & tile) {
    if (!tile.isRead || tile.most.isInsideOut()) return;
    GridBox box = tile.stated;
    const unsigned wrong = firstOutside(box, tile.least, tile.most);
    // A box beyond the place of the tile was told with the header.
    if (wrong < 6 && tile.place.box().contains(box) && !box.isInsideOut())
        fault(tile, offsetof(TileHeader, box) + wrong * sizeof(std::uint32_t),
              "the box is " + box.text() + ", and what is defined takes " + tile.least.text());
    if (wrong < 6) box = tile.least;
    if (!tile.parent)
        checkSizes(box);
    else if (box.isInsideOut())
        tile.parent->addUnknown(tile.place.box());
    else
        tile.parent->addBelow(box);
}

void TerrainWalk::checkSizes(const GridBox & box) {
    const auto check = [&](std::uint32_t size, std::uint32_t end, std::size_t offset) {
        // Other sizes were told with the header.
        const bool isPossible = size != 0 && size <= (1ULL << (header_.tileLevel + header_.treeDepth)) + 1;
        if (isPossible && size != end + 1)
            file_.fault(offset, "the size is " + std::to_string(size) + ", and the box of the root ends at " +
                                    std::to_string(end));
    };
    if (box.isInsideOut()) return;
    check(header_.sizeX, box.max[0], offsetof(FileHeader, sizeX));
    check(header_.sizeY, box.max[1], offsetof(FileHeader, sizeY));
}

/// Whether the tiles can be looked for.
bool isWalkable(const FileHeader & header, std::uint64_t fileSize) {
    return header.dataSize <= fileSize && header.tileLevel <= maxTileLevel &&
           header.treeDepth <= maxExtentLevel - header.tileLevel &&
           isPossibleTile(header.root, header.tileLevel, header.dataSize);
}

/// The square of the root in map coordinates.
TextureFormat::PlanBox squareOf(const FileHeader & header) {
    const double cells = std::ldexp(1.0, static_cast<int>(header.tileLevel + header.treeDepth));
    return {header.originX, header.originY, header.originX + cells * header.cellSizeX,
            header.originY + cells * header.cellSizeY};
}

void checkLightRoot(CheckedFile & file, const FileHeader & header, const TextureFormat::TileHeader & root) {
    const TextureFormat::PlanBox square = squareOf(header);
    const double x = s_samePlace * header.cellSizeX, y = s_samePlace * header.cellSizeY;
    const auto & image = root.image;
    if (std::abs(image.minX - square.minX) > x || std::abs(image.maxX - square.maxX) > x ||
        std::abs(image.minY - square.minY) > y || std::abs(image.maxY - square.maxY) > y)
        file.fault(header.dataSize, "the light map is not in the place of the terrain");
    if (root.pixelFormat != TextureFormat::PF_Luminance && root.pixelFormat != TextureFormat::PF_RGBA)
        file.fault(header.dataSize, "the light map has neither light nor normals");
}

void checkLightMap(CheckedFile & file, ValidationReport & report, const FileHeader & header) {
    if (file.size() == header.dataSize || file.hasEnded()) return;
    const bool isTerrainSeen = file.isAllSeen();
    const CheckedTexture light = checkTexture(file, header.dataSize, 0);
    report.lightTiles = light.tiles;
    if (light.root) checkLightRoot(file, header, *light.root);
    if (isTerrainSeen && file.isAllSeen() && !file.hasEnded() && light.tiles != report.tiles)
        file.fault(header.dataSize, "the light map has " + std::to_string(light.tiles) +
                                        " tiles, and the terrain has " + std::to_string(report.tiles));
}

} // namespace

void checkTerrain(CheckedFile & file, ValidationReport & report) {
    FileHeader header;
    if (!file.readRecord(0, header, "its header")) return;
    CORE::RecordFaults faults = header.faults(file.size());
    CORE::noteNonZero(header.zeros, offsetof(FileHeader, zeros), faults);
    file.faults(0, faults);
    if (!isWalkable(header, file.size())) return file.noteUnseen();
    if (TileBlock::padding(header.dataSize) != 0)
        file.fault(offsetof(FileHeader, dataSize), "the blocks do not end at a multiple of 16");
    report.levels = std::uint64_t(header.treeDepth) + 1;
    file.take(0, sizeof header);
    TerrainWalk(file, report, header).run();
    checkLightMap(file, report, header);
}

} // namespace ZMT::UTIL
