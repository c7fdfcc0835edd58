// The samples of a tile depend on the source and on coarser levels alone, so that all tiles of a row are made
// side by side, and any rows without the others. While a row is made, the next one is read.

#include "tilemaker.h"

#include <algorithm>
#include <utility>

#include <nbx/object/progress.h>

#include "tileassembly.h"

namespace ZMT::CORE::GRID {

using namespace TerrainFileFormat;

namespace {

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

TileMaker::TileMaker(const Heights & heights, const TileRows & rows, TileThreads & threads)
    : from_(heights), rows_(rows), threads_(threads), depths_(rows.treeDepth() + 1) {}

TileMaker::~TileMaker() = default;

bool TileMaker::make(std::uint32_t firstRow, std::uint32_t count, TileSink & sink, NBX::Progress & progress) {
    if (count == 0) return true;
    const AbandonedTileWork abandoned(threads_);
    Piece piece, next;
    piece.row = firstRow;
    piece.firstColumn = rows_.columns(0).first;
    nextPiece(piece, firstRow + count);
    read(piece);
    for (bool goesOn = true; goesOn; std::swap(piece, next)) {
        next.row = piece.row;
        next.firstColumn = piece.firstColumn;
        next.columns = piece.columns;
        goesOn = nextPiece(next, firstRow + count);
        makePiece(piece, next, goesOn, sink);
        const double done = goesOn ? next.row - firstRow : count;
        if (!progress.update(progress.totalValue() * (done / count))) return false;
    }
    return true;
}

/// Goes on to the next stretch of tiles; false behind the last one.
bool TileMaker::nextPiece(Piece & piece, std::uint32_t endRow) const {
    const TileRows::Range & columns = rows_.columns(0);
    piece.firstColumn += piece.columns;
    if (piece.firstColumn > columns.last) {
        if (piece.row + 1 == endRow) return false;
        ++piece.row;
        piece.firstColumn = columns.first;
    }
    piece.columns = columns.piece(piece.firstColumn);
    return true;
}

/// What a row of tiles needs of a level, in the width of the level; nothing where it lies beside.
LatticeArea TileMaker::rowArea(std::uint32_t depth, std::uint32_t row) const {
    LatticeArea area = from_.levels.area(depth);
    const std::uint32_t first = row << rows_.tileLevel(), last = (row + 1) << rows_.tileLevel();
    area.minY = std::max(area.minY, first);
    area.maxY = std::min(area.maxY, last);
    return area;
}

void TileMaker::read(Piece & piece) const {
    LatticeArea area = rowArea(0, piece.row);
    const std::uint32_t firstX = piece.firstColumn << rows_.tileLevel();
    const std::uint32_t lastX = (piece.firstColumn + static_cast<std::uint32_t>(piece.columns))
                                << rows_.tileLevel();
    area.minX = std::max(area.minX, firstX);
    area.maxX = std::min(area.maxX, lastX);
    piece.rows = {};
    if (area.minX <= area.maxX && area.minY <= area.maxY) {
        piece.heights.resize(std::size_t(area.width()) * area.height());
        from_.source.read(area.minX, area.minY, area.width(), area.height(), piece.heights.data());
        piece.rows = {piece.heights.data(), area};
    }
    piece.old.clear();
    for (std::size_t i = 0; from_.old && i < piece.columns; ++i)
        piece.old.push_back(
            from_.old->tileAt(rows_.place(0, piece.firstColumn + static_cast<std::uint32_t>(i), piece.row)));
}

void TileMaker::makePiece(const Piece & piece, Piece & next, bool hasNext, TileSink & sink) {
    for (std::uint32_t d = rows_.treeDepth(); d > 0; --d)
        ensureSamples(d, piece.row >> d);
    std::vector<MadeTile> tiles(piece.columns);
    threads_.start(tiles.size(), [&](std::size_t i) { tiles[i] = finestTile(piece, i); });
    const AbandonedTileWork abandoned(threads_);
    if (hasNext) read(next);
    threads_.finish();
    sink.add(0, piece.row, piece.firstColumn, tiles);
    if (hasNext && next.row == piece.row) return;
    for (std::uint32_t d = 1; d <= rows_.endingDepth(piece.row); ++d)
        makeInner(d, piece.row >> d, sink);
}

MadeTile TileMaker::finestTile(const Piece & piece, std::size_t i) const {
    MadeTile made;
    made.tile =
        TileSamples::quantised(rows_.place(0, piece.firstColumn + static_cast<std::uint32_t>(i), piece.row),
                               piece.rows, from_.scale);
    completeSamples(made.tile, from_.old ? &piece.old[i] : nullptr, nullptr);
    if (made.tile.isDefined() && made.tile.hasData) addBorders(made.tile);
    finishTile(made, {});
    return made;
}

/// The samples of a row of tiles, for the borders of the finer ones and to be written later.
void TileMaker::ensureSamples(std::uint32_t d, std::uint32_t row) {
    Depth & depth = depths_[d];
    if (depth.hasSamples && depth.samplesRow == row) return;
    const LatticeArea area = rowArea(d, row);
    std::vector<float> heights;
    LatticeRows rows;
    if (area.minY <= area.maxY) {
        heights.resize(std::size_t(area.width()) * area.height());
        from_.levels.read(d, area.minY, area.height(), heights.data());
        rows = {heights.data(), area};
    }
    const std::vector<bool> defined = from_.old ? definedPlaces(d, area) : std::vector<bool>();
    std::vector<OldTile> old;
    const TileRows::Range & columns = rows_.columns(d);
    for (std::uint32_t column = columns.first; from_.old && column <= columns.last; ++column)
        old.push_back(from_.old->tileAt(rows_.place(d, column, row)));
    depth.samples.resize(columns.count());
    threads_.run(columns.count(), [&](std::size_t i) {
        const TilePlace where = rows_.place(d, columns.first + static_cast<std::uint32_t>(i), row);
        depth.samples[i] = TileSamples::quantised(where, rows, from_.scale);
        if (!from_.old) return completeSamples(depth.samples[i], nullptr, nullptr);
        const std::vector<bool> isOwn = ownSamples(where, area, defined);
        completeSamples(depth.samples[i], &old[i], &isOwn);
    });
    depth.samplesRow = row;
    depth.hasSamples = true;
}

/// Which points of some rows of a coarse level are defined in the source, and not only around them. The old
/// terrain knows better what is there.
std::vector<bool> TileMaker::definedPlaces(std::uint32_t depth, const LatticeArea & rows) const {
    if (rows.minY > rows.maxY) return {};
    std::vector<bool> defined(std::size_t(rows.width()) * rows.height());
    const LatticeArea all = from_.source.area();
    std::vector<float> heights(all.width());
    for (std::uint32_t row = 0; row < rows.height(); ++row) {
        const std::uint64_t y = std::uint64_t(rows.minY + row) << depth;
        if (y < all.minY || y > all.maxY) continue;
        from_.source.read(all.minX, static_cast<std::uint32_t>(y), all.width(), 1, heights.data());
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
void TileMaker::completeSamples(TileSamples & tile, const OldTile * old,
                                const std::vector<bool> * isOwn) const {
    OldTile::Merged merged{tile.isDefined(), false};
    if (old) merged = old->merge(tile, from_.scale, isOwn);
    // A tile of a single cell has no parts that could be drawn for it.
    tile.hasData = merged.hasOld || (merged.hasNew && tile.place.depth >= from_.sourceDepth) ||
                   tile.place.depth == rows_.treeDepth() || rows_.tileLevel() == 0;
}

/// The tile `k` levels above; null above the root.
const TileSamples * TileMaker::ancestor(const TileSamples & tile, std::uint32_t k) const {
    const std::uint32_t d = tile.place.depth + k;
    if (d > rows_.treeDepth()) return nullptr;
    if (k == 0) return &tile;
    return &depths_[d].samples[(tile.place.tileX >> rows_.tileLevel() >> k) - rows_.columns(d).first];
}

/// Row by row, so that the ancestors are there for the borders.
void TileMaker::addBorders(TileSamples & tile) const {
    for (std::uint32_t k = 0; k < rows_.tileLevel(); ++k)
        if (const TileSamples * above = ancestor(tile, k)) tile.setBorders(k, *above);
}

/// All finer rows that needed the samples for their borders are made.
void TileMaker::makeInner(std::uint32_t depth, std::uint32_t row, TileSink & sink) {
    const TileRows::Range & columns = rows_.columns(depth);
    for (std::uint32_t first = columns.first; first <= columns.last; first += TileRows::s_tilesAtOnce) {
        std::vector<MadeTile> tiles(columns.piece(first));
        threads_.run(tiles.size(), [&](std::size_t i) {
            tiles[i].tile = std::move(depths_[depth].samples[first - columns.first + i]);
            if (tiles[i].tile.isDefined()) addBorders(tiles[i].tile);
        });
        sink.add(depth, row, first, tiles);
    }
}

} // namespace ZMT::CORE::GRID
