// The samples of a tile depend on the source and on coarser levels alone, so that all tiles of a row are made
// side by side. The file is written by one thread, in the order of the tiles: so its bytes do not depend on
// the number of threads. While a row is made, the next one is read.
//
// An inner tile whose children are all undefined is so as well: its samples could only stem from beyond its
// border, since every level is defined around what the finer one defines.

#include "gridterrainwriter.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

#include "core/terrain/geometry/grid/model/tileblock.h"

namespace ZMT::CORE::GRID {

using namespace TerrainFileFormat;

namespace {

constexpr unsigned s_deflateLevel = 1;

GridBox united(const GridBox & a, const GridBox & b) {
    GridBox result;
    for (unsigned axis = 0; axis < 3; ++axis) {
        result.min[axis] = std::min(a.min[axis], b.min[axis]);
        result.max[axis] = std::max(a.max[axis], b.max[axis]);
    }
    return result;
}

/// The first and the last tile of 2^`level` cells that have a point from `low` to `high`, of `count` tiles.
std::pair<std::uint32_t, std::uint32_t> tilesOver(std::uint32_t low, std::uint32_t high, std::uint32_t level,
                                                  std::uint32_t count) {
    const std::uint32_t cells = 1U << level;
    // A point between two tiles belongs to both.
    const std::uint32_t first = low == 0 ? 0 : (low - 1) >> level;
    return {first, std::min(high / cells, count - 1)};
}

/// The part of `defined`, points in `area`, that belongs to a tile.
std::vector<bool> ownSamples(const TilePlace & place, const LatticeArea & area,
                             const std::vector<bool> & defined) {
    const std::uint32_t side = samplesPerSide(place.tileLevel);
    if (defined.empty()) return std::vector<bool>(std::size_t(side) * side);
    std::vector<bool> own;
    for (std::uint32_t y = place.tileY; y < place.tileY + side; ++y)
        for (std::uint32_t x = place.tileX; x < place.tileX + side; ++x)
            own.push_back(x >= area.minX && x <= area.maxX && y >= area.minY && y <= area.maxY &&
                          defined[std::size_t(y - area.minY) * area.width() + (x - area.minX)]);
    return own;
}

} // namespace

GridTerrainWriter::GridTerrainWriter(const GridTerrainPlan & plan, const HeightSource & source,
                                     HeightPyramid & pyramid, const OldTerrainHeights * old,
                                     TileThreads & threads, NBX::File & file)
    : plan_(plan), source_(source), pyramid_(pyramid), old_(old), threads_(threads), file_(file),
      depths_(plan.treeDepth + 1), position_(file.position()) {
    LatticeArea area = source.area();
    if (old) {
        const LatticeArea other = old->area();
        area = {std::min(area.minX, other.minX), std::min(area.minY, other.minY),
                std::max(area.maxX, other.maxX), std::max(area.maxY, other.maxY)};
    }
    Depth & finest = depths_[0];
    const std::uint32_t tiles = 1U << plan.treeDepth;
    std::tie(finest.firstColumn, finest.lastColumn) = tilesOver(area.minX, area.maxX, plan.tileLevel, tiles);
    std::tie(finest.firstRow, finest.lastRow) = tilesOver(area.minY, area.maxY, plan.tileLevel, tiles);
    for (std::uint32_t d = 0; d < depths_.size(); ++d) {
        Depth & depth = depths_[d];
        depth.firstColumn = finest.firstColumn >> d;
        depth.lastColumn = finest.lastColumn >> d;
        depth.firstRow = finest.firstRow >> d;
        depth.lastRow = finest.lastRow >> d;
        for (std::vector<Written> & row : depth.written)
            row.assign(depth.columns(), {});
    }
}

GridTerrainWriter::~GridTerrainWriter() = default;

bool GridTerrainWriter::write(NBX::Progress & progress) {
    const AbandonedTileWork abandoned(threads_);
    const Depth & finest = depths_[0];
    Piece piece, next;
    piece.row = finest.firstRow;
    piece.firstColumn = finest.firstColumn;
    piece.columns = 0;
    nextPiece(piece);
    read(piece);
    const double rows = double(finest.lastRow - finest.firstRow) + 1.0;
    for (bool goesOn = true; goesOn; std::swap(piece, next)) {
        next.row = piece.row;
        next.firstColumn = piece.firstColumn;
        next.columns = piece.columns;
        goesOn = nextPiece(next);
        writePiece(piece, next, goesOn);
        const double done = goesOn ? next.row - finest.firstRow : rows;
        if (!progress.update(progress.totalValue() * (done / rows))) return false;
    }
    return true;
}

/// Goes on to the next stretch of tiles; false behind the last one.
bool GridTerrainWriter::nextPiece(Piece & piece) const {
    const Depth & finest = depths_[0];
    const std::size_t done = piece.firstColumn - finest.firstColumn + piece.columns;
    if (done < finest.columns()) {
        piece.firstColumn = finest.firstColumn + static_cast<std::uint32_t>(done);
    } else {
        if (piece.row == finest.lastRow) return false;
        ++piece.row;
        piece.firstColumn = finest.firstColumn;
    }
    piece.columns = std::min<std::size_t>(s_tilesAtOnce, finest.lastColumn - piece.firstColumn + 1);
    return true;
}

TilePlace GridTerrainWriter::place(std::uint32_t depth, std::uint32_t column, std::uint32_t row) const {
    return {plan_.tileLevel, depth, column << plan_.tileLevel, row << plan_.tileLevel};
}

/// What a row of tiles needs of a level, in the width of the level; nothing where it lies beside.
LatticeArea GridTerrainWriter::rowArea(std::uint32_t depth, std::uint32_t row) const {
    LatticeArea area = pyramid_.area(depth);
    const std::uint32_t first = row << plan_.tileLevel, last = (row + 1) << plan_.tileLevel;
    area.minY = std::max(area.minY, first);
    area.maxY = std::min(area.maxY, last);
    return area;
}

void GridTerrainWriter::read(Piece & piece) const {
    LatticeArea area = rowArea(0, piece.row);
    const std::uint32_t firstX = piece.firstColumn << plan_.tileLevel;
    const std::uint32_t lastX = (piece.firstColumn + static_cast<std::uint32_t>(piece.columns))
                                << plan_.tileLevel;
    area.minX = std::max(area.minX, firstX);
    area.maxX = std::min(area.maxX, lastX);
    piece.rows = {};
    if (area.minX <= area.maxX && area.minY <= area.maxY) {
        piece.heights.resize(std::size_t(area.width()) * area.height());
        source_.read(area.minX, area.minY, area.width(), area.height(), piece.heights.data());
        piece.rows = {piece.heights.data(), area};
    }
    piece.old.clear();
    for (std::size_t i = 0; old_ && i < piece.columns; ++i)
        piece.old.push_back(
            old_->tileAt(place(0, piece.firstColumn + static_cast<std::uint32_t>(i), piece.row)));
}

void GridTerrainWriter::writePiece(const Piece & piece, Piece & next, bool hasNext) {
    for (std::uint32_t d = plan_.treeDepth; d > 0; --d)
        ensureSamples(d, piece.row >> d);
    std::vector<Finished> tiles(piece.columns);
    threads_.start(tiles.size(), [&](std::size_t i) { tiles[i] = finestTile(piece, i); });
    const AbandonedTileWork abandoned(threads_);
    if (hasNext) read(next);
    threads_.finish();
    Depth & finest = depths_[0];
    for (std::size_t i = 0; i < tiles.size(); ++i)
        finest.written[piece.row % 2][piece.firstColumn - finest.firstColumn + i] = put(tiles[i]);
    if (!hasNext || next.row != piece.row) addParents(0, piece.row);
    file_.write(waiting_.data(), waiting_.size());
    waiting_.clear();
}

GridTerrainWriter::Finished GridTerrainWriter::finestTile(const Piece & piece, std::size_t i) const {
    TileSamples tile = TileSamples::quantised(
        place(0, piece.firstColumn + static_cast<std::uint32_t>(i), piece.row), piece.rows, plan_.scale);
    completeSamples(tile, old_ ? &piece.old[i] : nullptr, nullptr);
    if (!tile.isDefined()) return {};
    return finished(std::move(tile), {});
}

/// The samples of a row of tiles, for the borders of the finer ones and to be written later.
void GridTerrainWriter::ensureSamples(std::uint32_t d, std::uint32_t row) {
    Depth & depth = depths_[d];
    if (depth.hasSamples && depth.samplesRow == row) return;
    const LatticeArea area = rowArea(d, row);
    std::vector<float> heights;
    LatticeRows rows;
    if (area.minY <= area.maxY) {
        heights.resize(std::size_t(area.width()) * area.height());
        pyramid_.read(d, area.minY, area.height(), heights.data());
        rows = {heights.data(), area};
    }
    const std::vector<bool> defined = old_ ? definedPlaces(d, area) : std::vector<bool>();
    std::vector<OldTile> old;
    for (std::uint32_t column = depth.firstColumn; old_ && column <= depth.lastColumn; ++column)
        old.push_back(old_->tileAt(place(d, column, row)));
    depth.samples.resize(depth.columns());
    threads_.run(depth.columns(), [&](std::size_t i) {
        const TilePlace where = place(d, depth.firstColumn + static_cast<std::uint32_t>(i), row);
        depth.samples[i] = TileSamples::quantised(where, rows, plan_.scale);
        if (!old_) return completeSamples(depth.samples[i], nullptr, nullptr);
        const std::vector<bool> isOwn = ownSamples(where, area, defined);
        completeSamples(depth.samples[i], &old[i], &isOwn);
    });
    depth.samplesRow = row;
    depth.hasSamples = true;
}

/// Which points of some rows of a coarse level are defined in the source, and not only around them. The old
/// terrain knows better what is there.
std::vector<bool> GridTerrainWriter::definedPlaces(std::uint32_t depth, const LatticeArea & rows) const {
    if (rows.minY > rows.maxY) return {};
    std::vector<bool> defined(std::size_t(rows.width()) * rows.height());
    const LatticeArea all = source_.area();
    std::vector<float> heights(all.width());
    for (std::uint32_t row = 0; row < rows.height(); ++row) {
        const std::uint64_t y = std::uint64_t(rows.minY + row) << depth;
        if (y < all.minY || y > all.maxY) continue;
        source_.read(all.minX, static_cast<std::uint32_t>(y), all.width(), 1, heights.data());
        for (std::uint32_t column = 0; column < rows.width(); ++column) {
            const std::uint64_t x = std::uint64_t(rows.minX + column) << depth;
            if (x < all.minX || x > all.maxX) continue;
            const float height = heights[x - all.minX];
            defined[std::size_t(row) * rows.width() + column] = height == height;
        }
    }
    return defined;
}

/// Adds what the old terrain has, and finds out whether there is anything that the parent does not have.
void GridTerrainWriter::completeSamples(TileSamples & tile, const OldTile * old,
                                        const std::vector<bool> * isOwn) const {
    OldTile::Merged merged{tile.isDefined(), false};
    if (old) merged = old->merge(tile, plan_.scale, isOwn);
    // A tile of a single cell has no parts that could be drawn for it.
    tile.hasData = merged.hasOld || (merged.hasNew && tile.place.depth >= plan_.sourceDepth) ||
                   tile.place.depth == plan_.treeDepth || plan_.tileLevel == 0;
}

/// The tile `k` levels above; null above the root.
const TileSamples * GridTerrainWriter::ancestor(const TileSamples & tile, std::uint32_t k) const {
    const std::uint32_t d = tile.place.depth + k;
    if (d > plan_.treeDepth) return nullptr;
    if (k == 0) return &tile;
    return &depths_[d].samples[(tile.place.tileX >> plan_.tileLevel >> k) - depths_[d].firstColumn];
}

/// Goes on to the parents of a row of tiles that is written, once both rows of their children are.
void GridTerrainWriter::addParents(std::uint32_t depth, std::uint32_t row) {
    if (depth == plan_.treeDepth) {
        const Written & top = depths_[depth].written[row % 2].front();
        root_ = top.ref;
        rootBox_ = top.box;
        return;
    }
    if (row % 2 == 0 && row != depths_[depth].lastRow) return;
    Depth & parents = depths_[depth + 1];
    std::vector<Finished> tiles(parents.columns());
    threads_.run(tiles.size(), [&](std::size_t i) { tiles[i] = innerTile(depth + 1, i); });
    for (std::size_t i = 0; i < tiles.size(); ++i)
        parents.written[row / 2 % 2][i] = put(tiles[i]);
    for (std::vector<Written> & children : depths_[depth].written)
        std::fill(children.begin(), children.end(), Written());
    addParents(depth + 1, row / 2);
}

GridTerrainWriter::Finished GridTerrainWriter::innerTile(std::uint32_t d, std::size_t i) {
    TileSamples & samples = depths_[d].samples[i];
    if (!samples.isDefined()) return {};
    // All finer rows that needed it for their borders are written.
    TileSamples tile = std::move(samples);
    std::array<TileRef, 4> children;
    if (!addChildren(tile, children)) return {};
    return finished(std::move(tile), children);
}

/// The references of the children, whose boxes grow that of `tile`. False where there is none.
bool GridTerrainWriter::addChildren(TileSamples & tile, std::array<TileRef, 4> & children) const {
    const Depth & below = depths_[tile.place.depth - 1];
    bool isAny = false;
    for (unsigned i = 0; i < 4; ++i) {
        const std::uint32_t column = 2 * (tile.place.tileX >> plan_.tileLevel) + (i & 1U);
        const std::uint32_t row = 2 * (tile.place.tileY >> plan_.tileLevel) + (i >> 1U);
        children[i] = {};
        if (column < below.firstColumn || column > below.lastColumn) continue;
        const Written & child = below.written[row % 2][column - below.firstColumn];
        children[i] = child.ref;
        if (child.ref.rawSize == 0) continue;
        tile.box = united(tile.box, child.box);
        isAny = true;
        // What only a child has shows nowhere without the tiles above it.
        tile.hasData = tile.hasData || child.ref.isBlock();
    }
    return isAny || !tile.hasData;
}

GridTerrainWriter::Finished GridTerrainWriter::finished(TileSamples && tile,
                                                        const std::array<TileRef, 4> & children) const {
    Finished result;
    result.tile = std::move(tile);
    if (!result.tile.hasData) {
        result.ref.rawSize = 1;
        return result;
    }
    for (std::uint32_t k = 0; k < plan_.tileLevel; ++k)
        if (const TileSamples * above = ancestor(result.tile, k)) result.tile.setBorders(k, *above);
    TileHeader header = TileHeader::blank(result.tile.place);
    header.box = result.tile.box;
    header.children = children;
    std::vector<std::uint16_t> & block = result.tile.block;
    std::memcpy(block.data(), &header, sizeof header);
    result.ref.rawSize = blockSize(plan_.tileLevel);
    result.deflated = TileBlock::deflated(block.data(), result.ref.rawSize, s_deflateLevel);
    result.ref.storedSize = result.deflated ? result.deflated->size() : result.ref.rawSize;
    if (result.deflated) block = {};
    return result;
}

GridTerrainWriter::Written GridTerrainWriter::put(const Finished & tile) {
    Written written{tile.ref, tile.tile.box};
    if (!tile.ref.isBlock()) return written;
    const char * const bytes =
        static_cast<const char *>(tile.deflated ? tile.deflated->pointer() : tile.tile.block.data());
    written.ref.offset = position_;
    waiting_.insert(waiting_.end(), bytes, bytes + tile.ref.storedSize);
    position_ += tile.ref.storedSize;
    const unsigned padding = TileBlock::padding(position_);
    waiting_.insert(waiting_.end(), padding, '\0');
    position_ += padding;
    return written;
}

} // namespace ZMT::CORE::GRID
