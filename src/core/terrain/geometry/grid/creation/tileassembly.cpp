// The file is written by one thread, in the order of the tiles: so its bytes do not depend on the number of
// threads.
//
// An inner tile whose children are all undefined is so as well: its samples could only stem from beyond its
// border, since every level is defined around what the finer one defines.

#include "tileassembly.h"

#include <algorithm>
#include <cstring>

#include "core/terrain/geometry/grid/model/tileblock.h"

namespace ZMT::CORE::GRID {

using namespace TerrainFileFormat;

namespace {

constexpr unsigned s_deflateLevel = 1;

} // namespace

void finishTile(MadeTile & made, const std::array<TileRef, 4> & children) {
    TileSamples & tile = made.tile;
    made.ref = {};
    if (!tile.isDefined()) return;
    if (!tile.hasData) {
        made.ref.rawSize = 1;
        return;
    }
    TileHeader header = TileHeader::blank(tile.place);
    header.box = tile.box;
    header.children = children;
    std::memcpy(tile.block.data(), &header, sizeof header);
    made.ref.rawSize = blockSize(tile.place.tileLevel);
    made.stored = TileBlock::deflated(tile.block.data(), made.ref.rawSize, s_deflateLevel);
    made.ref.storedSize = made.stored ? made.stored->size() : made.ref.rawSize;
    if (made.stored) tile.block = {};
}

TileAssembly::TileAssembly(const TileRows & rows, TileThreads & threads, NBX::File & file)
    : rows_(rows), threads_(threads), file_(file), depths_(rows.treeDepth() + 1), position_(file.position()) {
    for (std::uint32_t d = 0; d < depths_.size(); ++d)
        for (std::vector<Written> & row : depths_[d])
            row.assign(rows.columns(d).count(), {});
}

void TileAssembly::add(std::uint32_t depth, std::uint32_t row, std::uint32_t firstColumn,
                       std::vector<MadeTile> & tiles) {
    if (depth > 0) threads_.run(tiles.size(), [&](std::size_t i) { finish(tiles[i]); });
    const TileRows::Range & columns = rows_.columns(depth);
    std::vector<Written> & written = depths_[depth][row % 2];
    for (std::size_t i = 0; i < tiles.size(); ++i)
        written[firstColumn - columns.first + i] = put(tiles[i]);
    file_.write(waiting_.data(), waiting_.size());
    waiting_.clear();
    if (depth == rows_.treeDepth()) root_ = written.front();
    if (depth == 0 || firstColumn + tiles.size() <= columns.last) return;
    for (std::vector<Written> & children : depths_[depth - 1])
        std::fill(children.begin(), children.end(), Written());
}

/// Of an inner tile.
void TileAssembly::finish(MadeTile & made) const {
    std::array<TileRef, 4> children;
    if (made.tile.isDefined() && !addChildren(made.tile, children)) made.tile.block.clear();
    finishTile(made, children);
}

/// The references of the children, whose boxes grow that of `tile`. False where there is none.
bool TileAssembly::addChildren(TileSamples & tile, std::array<TileRef, 4> & children) const {
    const std::uint32_t below = tile.place.depth - 1;
    const TileRows::Range & columns = rows_.columns(below);
    bool isAny = false;
    for (unsigned i = 0; i < 4; ++i) {
        const std::uint32_t column = 2 * (tile.place.tileX >> rows_.tileLevel()) + (i & 1U);
        const std::uint32_t row = 2 * (tile.place.tileY >> rows_.tileLevel()) + (i >> 1U);
        if (!columns.contains(column)) continue;
        const Written & child = depths_[below][row % 2][column - columns.first];
        children[i] = child.ref;
        if (child.ref.rawSize == 0) continue;
        tile.box = tile.box.united(child.box);
        isAny = true;
        // What only a child has shows nowhere without the tiles above it.
        tile.hasData = tile.hasData || child.ref.isBlock();
    }
    return isAny || !tile.hasData;
}

TileAssembly::Written TileAssembly::put(const MadeTile & made) {
    Written written{made.ref, made.tile.box};
    if (!made.ref.isBlock()) return written;
    const char * const bytes =
        static_cast<const char *>(made.stored ? made.stored->pointer() : made.tile.block.data());
    written.ref.offset = position_;
    waiting_.insert(waiting_.end(), bytes, bytes + made.ref.storedSize);
    position_ += made.ref.storedSize;
    const unsigned padding = TileBlock::padding(position_);
    waiting_.insert(waiting_.end(), padding, '\0');
    position_ += padding;
    return written;
}

} // namespace ZMT::CORE::GRID
