#pragma once

#include <cstdint>
#include <vector>

#include <nbx/object/so.h>

namespace NBX {
class SceneThing;
}

namespace ZMT::CORE::GRID {

struct GridTerrainFrame;
class GeometryTileBagHACK;
class GridTerrainTile;

/// Draws the tiles of one picture once they are chosen and know their neighbours: depth, then the fragments
/// that were seen, then colour.
class GridTerrainPassesGL {
public:
    explicit GridTerrainPassesGL(GridTerrainFrame & frame) : frame_(frame) {}

    /// Draws depth alone, front to back, and counts the fragments of each tile.
    void paintDepth();
    /// Gives every tile its number of visible fragments, and tells apart those that are hidden.
    void readQueries();
    /// Draws colours where a tile is foremost, and what is draped on it.
    void paintColor();

private:
    using Tile = NBX::SO<GridTerrainTile>;

    void drawDepth(const Tile & tile);
    std::uint64_t readQueries(const Tile & tile);
    void collect(const Tile & tile);
    void fill(GeometryTileBagHACK & bag, const Tile & tile) const;
    void paintBag(GridTerrainTile & tile, const NBX::SO<GeometryTileBagHACK> & bag);
    void paintDraped(NBX::SceneThing & thing, const NBX::SO<GeometryTileBagHACK> & bag,
                     const GridTerrainTile & tile);
    void openColorBracket() const;
    void closeColorBracket() const;

    GridTerrainFrame & frame_;
};

} // namespace ZMT::CORE::GRID
