// A border has a table of vertices for each level of difference, as coarse as the neighbour is. Row k and the
// edge of the tile are joined by triangles: each cell of the edge goes to the nearest vertex of the row, and
// halfway between two of them stands the triangle to both.
//
// Where tiles of several levels meet at a corner, what closes their borders ends on one vertical line, each
// at another stretch of it. A vertex amid the edge of another triangle leaves gaps below a pixel, so that
// each border also gets triangles without area along the line, from one level to the next: then it is divided
// alike for all.

#include <zmt/core/terrain/geometry/grid/model/gridterraintileindexbuffer.h>

#include <bit>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/bufferobjectgl.h>
#include <nbx/object/errorhandler.h>

#include "tilesquare.h"

namespace ZMT::CORE::GRID {

namespace {

/// Triangles of a border entry, whose row has a vertex at every `step` cells, before cell `i` of the edge.
std::uint32_t trianglesBefore(unsigned i, unsigned step) {
    return i + (i + step / 2) / step;
}

} // namespace

NBX_CLASS_IMPL(GridTerrainTileIndexBuffer, NBX::SharedObj)

GridTerrainTileIndexBuffer::GridTerrainTileIndexBuffer(unsigned level) {
    NBX_CHECK(level <= maxLevel, L"range error: [0, " << maxLevel + 1 << L"), " << level);
    if (level > maxLevel) return;
    cells_ = 1U << level;
    appendCells(0, 0, cells_);
    tileIndices_ = {IndexRange::triangles, 0, static_cast<std::uint32_t>(indices_.size())};
    // A single cell has no tables.
    for (unsigned border = 0; level > 0 && border < bordersOfTile; ++border)
        appendBorder(border);
    for (unsigned border = 0; level > 0 && border < bordersOfTile; ++border)
        appendCorners(border);
}

GridTerrainTileIndexBuffer::~GridTerrainTileIndexBuffer() = default;

void GridTerrainTileIndexBuffer::appendCells(unsigned x, unsigned y, unsigned size) {
    if (size > 1) {
        const unsigned half = size / 2;
        for (unsigned quarter = 0; quarter < 4; ++quarter)
            appendCells(x + (quarter & 1U) * half, y + (quarter >> 1U) * half, half);
        return;
    }
    const unsigned samples = cells_ + 1, i = x + y * samples;
    for (const unsigned corner : {i, i + 1, i + samples, i + samples, i + 1, i + samples + 1})
        indices_.push_back(static_cast<std::uint16_t>(corner));
}

unsigned GridTerrainTileIndexBuffer::edgeVertex(unsigned border, unsigned i) const {
    const unsigned samples = cells_ + 1;
    const unsigned corner = border == 2 ? cells_ : border == 3 ? cells_ * samples : 0;
    return corner + i * (border % 2 == 0 ? samples : 1);
}

unsigned GridTerrainTileIndexBuffer::firstRowVertex(unsigned border) const {
    // 2^(L-k) + 1 vertices in each of the L rows.
    const unsigned tableSize = 2 * cells_ + static_cast<unsigned>(std::countr_zero(cells_)) - 2;
    return (cells_ + 1) * (cells_ + 1) + border * tableSize;
}

// Faces are drawn from both sides, so that it does not matter which way the triangles of an entry turn.
void GridTerrainTileIndexBuffer::appendBorder(unsigned border) {
    const unsigned samples = cells_ + 1;
    const bool isAlongX = border % 2 == 1;
    const auto edge = [&](unsigned i) { return edgeVertex(border, i); };
    const auto append = [&](unsigned a, unsigned b, unsigned c) {
        for (const unsigned index : {isAlongX ? b : a, isAlongX ? a : b, c})
            indices_.push_back(static_cast<std::uint16_t>(index));
    };
    std::vector<IndexRange> & entries = borderIndices_[border];
    const auto close = [&](std::uint32_t mode, std::size_t start) {
        entries.push_back(
            {mode, static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(indices_.size() - start)});
    };

    unsigned row = firstRowVertex(border);
    std::size_t start = indices_.size();
    for (unsigned i = 0; i < samples; ++i)
        for (const unsigned index : {edge(i), row + i})
            indices_.push_back(static_cast<std::uint16_t>(index));
    close(IndexRange::triangleStrip, start);

    row += samples;
    for (unsigned step = 2; step < cells_; step *= 2) {
        start = indices_.size();
        unsigned j = 0, switchPoint = step / 2 - 1;
        for (unsigned i = 0; i < cells_; ++i) {
            append(edge(i), edge(i + 1), row + j);
            if (i != switchPoint) continue;
            append(row + j, row + j + 1, edge(i + 1));
            switchPoint += step;
            ++j;
        }
        close(IndexRange::triangles, start);
        row += cells_ / step + 1;
    }
}

// Each entry has as many for each vertex of its row: from the edge to rows 1 and 2, 2 and 3, on to the
// entry's.
void GridTerrainTileIndexBuffer::appendCorners(unsigned border) {
    const auto rows = static_cast<unsigned>(borderIndices_[border].size());
    for (unsigned k = 0; k < rows; ++k) {
        cornerIndices_[border].push_back(static_cast<std::uint32_t>(indices_.size()));
        for (unsigned cell = 0; cell <= cells_; cell += 1U << k) {
            unsigned row = firstRowVertex(border) + cells_ + 1;
            for (unsigned coarser = 1; coarser < k; ++coarser) {
                const unsigned next = row + (cells_ >> coarser) + 1;
                for (const unsigned index :
                     {edgeVertex(border, cell), row + (cell >> coarser), next + (cell >> (coarser + 1))})
                    indices_.push_back(static_cast<std::uint16_t>(index));
                row = next;
            }
        }
    }
}

IndexRange GridTerrainTileIndexBuffer::borderStretch(unsigned border, unsigned k, unsigned first,
                                                     unsigned cells) const {
    const bool isInside = border < bordersOfTile && k > 0 && k < borderIndices_[border].size() &&
                          first <= cells_ && cells <= cells_ - first;
    NBX_CHECK(isInside, L"no such stretch of a border");
    if (!isInside) return {};
    const IndexRange & entry = borderIndices_[border][k];
    const std::uint32_t begin = trianglesBefore(first, 1U << k),
                        end = trianglesBefore(first + cells, 1U << k);
    return {entry.mode, entry.start + begin * 3, (end - begin) * 3};
}

IndexRange GridTerrainTileIndexBuffer::borderCorner(unsigned border, unsigned k, unsigned cell) const {
    const bool isInside = border < bordersOfTile && k < cornerIndices_[border].size() && cell <= cells_;
    NBX_CHECK(isInside, L"no such corner of a border");
    if (!isInside || k < 2 || cell % (1U << k) != 0) return {};
    const std::uint32_t count = (k - 1) * 3;
    return {IndexRange::triangles, cornerIndices_[border][k] + (cell >> k) * count, count};
}

} // namespace ZMT::CORE::GRID
