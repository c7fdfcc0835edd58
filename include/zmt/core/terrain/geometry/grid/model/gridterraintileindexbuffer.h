#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {
class BufferObjectGL;
class EngineGL;
} // namespace NBX

namespace ZMT::CORE::GRID {

/// A stretch of an index buffer.
struct IndexRange {
    static constexpr std::uint32_t triangles = 4, triangleStrip = 5, triangleFan = 6;

    std::uint32_t mode = 0;  ///< of OpenGL's primitives
    std::uint32_t start = 0; ///< first index
    std::uint32_t count = 0;
};

/// The triangles of every tile of a terrain, and those that close the borders of a tile towards coarser
/// neighbours. Tiles have one topology, so that one buffer serves all.
class GridTerrainTileIndexBuffer : public NBX::SharedObj {
    NBX_CLASS(GridTerrainTileIndexBuffer, NBX::SharedObj)
public:
    static constexpr unsigned maxLevel = 7; ///< since indices have 16 bits

    /// For tiles of 2^`level` cells along a side, 0 to `maxLevel`. Another level is reported, and gives a
    /// buffer without indices.
    explicit GridTerrainTileIndexBuffer(unsigned level);
    ~GridTerrainTileIndexBuffer() override;

    /// Made on the card at the first use.
    void bind(NBX::EngineGL * engine) const;
    void unbind(NBX::EngineGL * engine) const;
    /// A list of triangles in Z-order: each quarter of it is that quarter of the tile.
    const IndexRange & tileIndices() const { return tileIndices_; }
    /// Entry k closes a border towards a neighbour that is k levels coarser.
    const std::vector<IndexRange> & borderLODIndices(unsigned border) const { return borderIndices_[border]; }
    /// The part of entry `k`, from 1 on, that lies along `cells` cells of the border from cell `first` on.
    /// The parts of neighbouring stretches together are the entry.
    IndexRange borderStretch(unsigned border, unsigned k, unsigned first, unsigned cells) const;
    /// Triangles without area that stand above cell `cell` of the border and join its edge to rows 1 to `k`
    /// there: with them the vertical line has a vertex at each level. None where row `k` has no vertex, and
    /// for `k` below 2.
    IndexRange borderCorner(unsigned border, unsigned k, unsigned cell) const;
    /// Closes a stretch of a border towards a neighbour that is `k` levels coarser, corners included; the
    /// number of triangles of the stretch.
    unsigned drawBorder(unsigned border, unsigned k, unsigned first, unsigned cells) const;
    /// Draws with the bound buffers; the number of triangles.
    unsigned drawElements(const IndexRange & range) const;

    /// The indices, for those who draw nothing.
    const std::vector<std::uint16_t> & indices() const { return indices_; }

private:
    void appendCells(unsigned x, unsigned y, unsigned size);
    void appendBorder(unsigned border);
    void appendCorners(unsigned border);
    unsigned edgeVertex(unsigned border, unsigned i) const;
    unsigned firstRowVertex(unsigned border) const;

    unsigned cells_ = 0; ///< along a side
    std::vector<std::uint16_t> indices_;
    IndexRange tileIndices_;
    std::array<std::vector<IndexRange>, 4> borderIndices_;
    std::array<std::vector<std::uint32_t>, 4> cornerIndices_; ///< where those of each entry begin
    mutable NBX::SO<NBX::BufferObjectGL> buffer_;
};

} // namespace ZMT::CORE::GRID
