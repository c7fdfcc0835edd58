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

namespace TextureFormat = CORE::StreamingTextureFormat;

/// Of the side of a patch: children are boxes of their own, which were rounded on their own.
constexpr double s_patchTolerance = 1e-4;
/// Images reach beyond their patches by so much of a side.
constexpr double s_margin = 0.02;

/// A tile on the way from the root.
struct PatchTile {
    BlockStream::Named named;
    unsigned level = 0;                            ///< 0 for the root
    std::optional<TextureFormat::PlanBox> outside; ///< the patch of the parent
};

/// `box`, so much wider on each side.
TextureFormat::PlanBox widened(const TextureFormat::PlanBox & box, double x, double y) {
    return {box.minX - x, box.minY - y, box.maxX + x, box.maxY + y};
}

bool contains(const TextureFormat::PlanBox & outer, const TextureFormat::PlanBox & inner) {
    const TextureFormat::PlanBox wide = widened(outer, s_patchTolerance * (outer.maxX - outer.minX),
                                                s_patchTolerance * (outer.maxY - outer.minY));
    return inner.minX >= wide.minX && inner.minY >= wide.minY && inner.maxX <= wide.maxX &&
           inner.maxY <= wide.maxY;
}

/// An image of few pixels has its centres beside the patch.
bool isAtPatch(const TextureFormat::TileHeader & header) {
    const TextureFormat::PlanBox & patch = header.patch;
    const TextureFormat::PlanBox near =
        widened(patch, s_margin * (patch.maxX - patch.minX) + header.pixelSizeX(),
                s_margin * (patch.maxY - patch.minY) + header.pixelSizeY());
    return header.image.minX <= near.maxX && header.image.maxX >= near.minX &&
           header.image.minY <= near.maxY && header.image.maxY >= near.minY;
}

class TextureWalk : BlockWalk<PatchTile> {
public:
    TextureWalk(CheckedFile & file, std::uint64_t base, const TextureFormat::StreamHeader & header,
                std::uint64_t key)
        : BlockWalk<PatchTile>(blocks_), file_(file), blocks_(file, base, header.dataSize, key) {
        const auto root = std::make_shared<PatchTile>();
        root->named = {
            header.root, base + offsetof(TextureFormat::StreamHeader, root), "the root", header.dataSize, {}};
        add(root);
    }

    CheckedTexture run() {
        walk();
        blocks_.noteGaps();
        return found_;
    }

private:
    void fault(const PatchTile & tile, std::size_t offset, const std::string & what) {
        file_.fault(blocks_.position(tile.named.ref, offset), tile.named.name + ": " + what);
    }
    void add(const Pointer & tile);
    void open(const Pointer & tile) override;
    bool checkHeader(const PatchTile & tile, const TextureFormat::TileHeader & header);
    void checkPixels(const PatchTile & tile, const TextureFormat::TileHeader & header);
    void checkChild(const PatchTile & tile, const TextureFormat::TileHeader & header, unsigned index);

    CheckedFile & file_;
    BlockStream blocks_;
    CheckedTexture found_;
};

void TextureWalk::add(const Pointer & tile) {
    constexpr std::uint64_t mostPixels =
        std::uint64_t(TextureFormat::maxTileSize) * TextureFormat::maxTileSize * 4;
    const std::uint32_t size = tile->named.ref.rawSize;
    if (size > TextureFormat::headerSize && size <= TextureFormat::headerSize + mostPixels) {
        push(tile);
        return;
    }
    file_.fault(tile->named.at, tile->named.name + " has " + std::to_string(size) + " bytes");
    file_.noteUnseen();
}

void TextureWalk::open(const Pointer & tile) {
    const NBX::SO<NBX::DataResource> raw = blocks_.read(tile->named);
    if (!raw) return;
    TextureFormat::TileHeader header;
    std::memcpy(static_cast<void *>(&header), raw->pointer(), sizeof header);
    if (!checkHeader(*tile, header)) return file_.noteUnseen();
    blocks_.take(tile->named);
    ++found_.tiles;
    found_.levels = std::max<std::uint64_t>(found_.levels, tile->level + 1);
    if (tile->level == 0) found_.root = header;
    for (unsigned i = 0; i < TextureFormat::childCount; ++i)
        checkChild(*tile, header, i);
}

/// False where the block is no tile at all.
bool TextureWalk::checkHeader(const PatchTile & tile, const TextureFormat::TileHeader & header) {
    CORE::RecordFaults faults = header.faults();
    const bool isSound = faults.empty();
    const bool isTile = std::memcmp(header.magic, TextureFormat::tileMagic, sizeof header.magic) == 0;
    const std::string name = isTile ? tile.named.name : tile.named.fullName();
    for (const CORE::RecordFault & found : faults)
        file_.fault(blocks_.position(tile.named.ref, found.offset), name + ": " + found.what);
    if (!isTile) return false;
    faults.clear();
    CORE::noteNonZero(header.zeros, offsetof(TextureFormat::TileHeader, zeros), faults);
    for (const CORE::RecordFault & found : faults)
        fault(tile, found.offset, found.what);
    if (header.zero != 0)
        fault(tile, offsetof(TextureFormat::TileHeader, zero), "a number that has no meaning is not zero");
    checkPixels(tile, header);
    if (!isSound) return true;
    if (tile.outside && !contains(*tile.outside, header.patch))
        fault(tile, offsetof(TextureFormat::TileHeader, patch),
              "the patch reaches beyond that of the parent");
    if (!isAtPatch(header))
        fault(tile, offsetof(TextureFormat::TileHeader, image), "the image lies beside its patch");
    return true;
}

void TextureWalk::checkPixels(const PatchTile & tile, const TextureFormat::TileHeader & header) {
    // Other sizes were told with the header.
    if (header.width > TextureFormat::maxTileSize || header.height > TextureFormat::maxTileSize) return;
    if (!TextureFormat::isFormat(header.pixelFormat)) {
        fault(tile, offsetof(TextureFormat::TileHeader, pixelFormat),
              "no pixel format has the number " + std::to_string(header.pixelFormat));
        return;
    }
    const std::string size = std::to_string(header.width) + " by " + std::to_string(header.height);
    if (TextureFormat::isBlockFormat(header.pixelFormat) && (header.width % 4 != 0 || header.height % 4 != 0))
        fault(tile, offsetof(TextureFormat::TileHeader, width), size + " pixels are no whole blocks");
    const std::uint64_t bytes = TextureFormat::pixelBytes(header.pixelFormat, header.width, header.height);
    if (bytes != tile.named.ref.rawSize - TextureFormat::headerSize)
        fault(tile, offsetof(TextureFormat::TileHeader, width),
              size + " pixels take " + std::to_string(bytes) + " bytes, and there are " +
                  std::to_string(tile.named.ref.rawSize - TextureFormat::headerSize));
}

void TextureWalk::checkChild(const PatchTile & tile, const TextureFormat::TileHeader & header,
                             unsigned index) {
    const TextureFormat::TileRef & ref = header.children[index];
    const std::size_t offset =
        offsetof(TextureFormat::TileHeader, children) + index * sizeof(TextureFormat::TileRef);
    if (ref.rawSize == 0) {
        if (ref.offset != 0 || ref.storedSize != 0)
            fault(tile, offset, "child " + std::to_string(index) + " is nothing, and has a place or a size");
        return;
    }
    const auto child = std::make_shared<PatchTile>();
    child->level = tile.level + 1;
    if (header.patch.isSound()) child->outside = header.patch;
    child->named = {ref,
                    blocks_.position(tile.named.ref, offset),
                    (tile.level == 0 ? "tile " : tile.named.name + ".") + std::to_string(index),
                    tile.named.ref.offset,
                    {}};
    if (child->level < TextureFormat::maxLevels) return add(child);
    fault(tile, offset, "more than " + std::to_string(TextureFormat::maxLevels) + " levels");
    file_.noteUnseen();
}

/// Whether the tiles can be looked for.
bool isWalkable(const TextureFormat::StreamHeader & header, std::uint64_t available) {
    TextureFormat::StreamHeader walked = header;
    walked.reserved0 = 0;
    return walked.isSound(available);
}

} // namespace

CheckedTexture checkTexture(CheckedFile & file, std::uint64_t base, std::uint64_t key) {
    TextureFormat::StreamHeader header;
    if (!file.readRecord(base, header, "the header of a streaming texture")) return {};
    TextureFormat::scramble(&header, sizeof header, key);
    const std::uint64_t available = file.size() - base;
    CORE::RecordFaults faults = header.faults(available);
    CORE::noteNonZero(header.zeros, offsetof(TextureFormat::StreamHeader, zeros), faults);
    file.faults(base, faults);
    if (!isWalkable(header, available)) {
        file.noteUnseen();
        return {};
    }
    if (header.dataSize < available)
        file.fault(base + offsetof(TextureFormat::StreamHeader, dataSize),
                   std::to_string(available - header.dataSize) + " bytes lie behind the end of the stream");
    if (CORE::GRID::TileBlock::padding(base + header.dataSize) != 0)
        file.fault(base + offsetof(TextureFormat::StreamHeader, dataSize),
                   "the blocks do not end at a multiple of 16");
    file.take(base, base + sizeof header);
    return TextureWalk(file, base, header, key).run();
}

} // namespace ZMT::UTIL
