// A walk from the root to all tiles, the blocks in the order of the file. A tile whose header is unsound has
// no children to follow; everything else is told and gone past, so that one fault does not hide another.

#include "texturevalidation.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "blockwalk.h"
#include "core/terrain/geometry/grid/model/tileblock.h"

namespace ZMT::UTIL {

namespace {

using namespace CORE::StreamingTextureFormat;

/// Of the side of a patch: children are boxes of their own, which were rounded on their own.
constexpr double s_tolerance = 1e-4;
/// Images reach beyond their patches by so much of a side.
constexpr double s_margin = 0.02;

/// A tile on the way from the root.
struct Tile {
    BlockStream::Named named;
    unsigned level = 0;             ///< 0 for the root
    std::optional<PlanBox> outside; ///< the patch of the parent
};

/// `box`, so much wider on each side.
PlanBox widened(const PlanBox & box, double x, double y) {
    return {box.minX - x, box.minY - y, box.maxX + x, box.maxY + y};
}

bool contains(const PlanBox & outer, const PlanBox & inner) {
    const PlanBox wide =
        widened(outer, s_tolerance * (outer.maxX - outer.minX), s_tolerance * (outer.maxY - outer.minY));
    return inner.minX >= wide.minX && inner.minY >= wide.minY && inner.maxX <= wide.maxX &&
           inner.maxY <= wide.maxY;
}

/// An image of few pixels has its centres beside the patch.
bool isAtPatch(const TileHeader & header) {
    const PlanBox & patch = header.patch;
    const PlanBox near = widened(patch, s_margin * (patch.maxX - patch.minX) + header.pixelSizeX(),
                                 s_margin * (patch.maxY - patch.minY) + header.pixelSizeY());
    return header.image.minX <= near.maxX && header.image.maxX >= near.minX &&
           header.image.minY <= near.maxY && header.image.maxY >= near.minY;
}

class TextureWalk : BlockWalk<Tile> {
public:
    TextureWalk(CheckedFile & file, std::uint64_t base, const StreamHeader & header, std::uint64_t key)
        : BlockWalk<Tile>(blocks_), file_(file), blocks_(file, base, header.dataSize, key) {
        const auto root = std::make_shared<Tile>();
        root->named = {header.root, base + offsetof(StreamHeader, root), "the root", header.dataSize, {}};
        add(root);
    }

    CheckedTexture run() {
        walk();
        blocks_.noteGaps();
        return found_;
    }

private:
    void fault(const Tile & tile, std::size_t offset, const std::string & what) {
        file_.fault(blocks_.position(tile.named.ref, offset), tile.named.name + ": " + what);
    }
    void add(const Pointer & tile);
    void open(const Pointer & tile) override;
    bool checkHeader(const Tile & tile, const TileHeader & header);
    void checkPixels(const Tile & tile, const TileHeader & header);
    void checkChild(const Tile & tile, const TileHeader & header, unsigned index);

    CheckedFile & file_;
    BlockStream blocks_;
    CheckedTexture found_;
};

void TextureWalk::add(const Pointer & tile) {
    constexpr std::uint64_t mostPixels = std::uint64_t(maxTileSize) * maxTileSize * 4;
    const std::uint32_t size = tile->named.ref.rawSize;
    if (size > headerSize && size <= headerSize + mostPixels) {
        push(tile);
        return;
    }
    file_.fault(tile->named.at, tile->named.name + " has " + std::to_string(size) + " bytes");
    file_.noteUnseen();
}

void TextureWalk::open(const Pointer & tile) {
    const NBX::SO<NBX::DataResource> raw = blocks_.read(tile->named);
    if (!raw) return;
    TileHeader header;
    std::memcpy(static_cast<void *>(&header), raw->pointer(), sizeof header);
    if (!checkHeader(*tile, header)) return file_.noteUnseen();
    blocks_.take(tile->named);
    ++found_.tiles;
    found_.levels = std::max<std::uint64_t>(found_.levels, tile->level + 1);
    if (tile->level == 0) found_.root = header;
    for (unsigned i = 0; i < childCount; ++i)
        checkChild(*tile, header, i);
}

/// False where the block is no tile at all.
bool TextureWalk::checkHeader(const Tile & tile, const TileHeader & header) {
    CORE::RecordFaults faults = header.faults();
    const bool isSound = faults.empty();
    const bool isTile = std::memcmp(header.magic, tileMagic, sizeof header.magic) == 0;
    const std::string name = isTile ? tile.named.name : tile.named.fullName();
    for (const CORE::RecordFault & found : faults)
        file_.fault(blocks_.position(tile.named.ref, found.offset), name + ": " + found.what);
    if (!isTile) return false;
    faults.clear();
    CORE::noteNonZero(header.zeros, offsetof(TileHeader, zeros), faults);
    for (const CORE::RecordFault & found : faults)
        fault(tile, found.offset, found.what);
    if (header.zero != 0) fault(tile, offsetof(TileHeader, zero), "a number that has no meaning is not zero");
    checkPixels(tile, header);
    if (!isSound) return true;
    if (tile.outside && !contains(*tile.outside, header.patch))
        fault(tile, offsetof(TileHeader, patch), "the patch reaches beyond that of the parent");
    if (!isAtPatch(header)) fault(tile, offsetof(TileHeader, image), "the image lies beside its patch");
    return true;
}

void TextureWalk::checkPixels(const Tile & tile, const TileHeader & header) {
    // Other sizes were told with the header.
    if (header.width > maxTileSize || header.height > maxTileSize) return;
    if (!isFormat(header.pixelFormat)) {
        fault(tile, offsetof(TileHeader, pixelFormat),
              "no pixel format has the number " + std::to_string(header.pixelFormat));
        return;
    }
    const std::string size = std::to_string(header.width) + " by " + std::to_string(header.height);
    if (isBlockFormat(header.pixelFormat) && (header.width % 4 != 0 || header.height % 4 != 0))
        fault(tile, offsetof(TileHeader, width), size + " pixels are no whole blocks");
    const std::uint64_t bytes = pixelBytes(header.pixelFormat, header.width, header.height);
    if (bytes != tile.named.ref.rawSize - headerSize)
        fault(tile, offsetof(TileHeader, width),
              size + " pixels take " + std::to_string(bytes) + " bytes, and there are " +
                  std::to_string(tile.named.ref.rawSize - headerSize));
}

void TextureWalk::checkChild(const Tile & tile, const TileHeader & header, unsigned index) {
    const TileRef & ref = header.children[index];
    const std::size_t offset = offsetof(TileHeader, children) + index * sizeof(TileRef);
    if (ref.rawSize == 0) {
        if (ref.offset != 0 || ref.storedSize != 0)
            fault(tile, offset, "child " + std::to_string(index) + " is nothing, and has a place or a size");
        return;
    }
    const auto child = std::make_shared<Tile>();
    child->level = tile.level + 1;
    if (header.patch.isSound()) child->outside = header.patch;
    child->named = {ref,
                    blocks_.position(tile.named.ref, offset),
                    (tile.level == 0 ? "tile " : tile.named.name + ".") + std::to_string(index),
                    tile.named.ref.offset,
                    {}};
    if (child->level < maxLevels) return add(child);
    fault(tile, offset, "more than " + std::to_string(maxLevels) + " levels");
    file_.noteUnseen();
}

/// Whether the tiles can be looked for.
bool isWalkable(const StreamHeader & header, std::uint64_t available) {
    StreamHeader walked = header;
    walked.reserved0 = 0;
    return walked.isSound(available);
}

} // namespace

CheckedTexture checkTexture(CheckedFile & file, std::uint64_t base, std::uint64_t key) {
    StreamHeader header;
    if (!file.readRecord(base, header, "the header of a streaming texture")) return {};
    scramble(&header, sizeof header, key);
    const std::uint64_t available = file.size() - base;
    CORE::RecordFaults faults = header.faults(available);
    CORE::noteNonZero(header.zeros, offsetof(StreamHeader, zeros), faults);
    file.faults(base, faults);
    if (!isWalkable(header, available)) {
        file.noteUnseen();
        return {};
    }
    if (header.dataSize < available)
        file.fault(base + offsetof(StreamHeader, dataSize),
                   std::to_string(available - header.dataSize) + " bytes lie behind the end of the stream");
    if (CORE::GRID::TileBlock::padding(base + header.dataSize) != 0)
        file.fault(base + offsetof(StreamHeader, dataSize), "the blocks do not end at a multiple of 16");
    file.take(base, base + sizeof header);
    return TextureWalk(file, base, header, key).run();
}

} // namespace ZMT::UTIL
