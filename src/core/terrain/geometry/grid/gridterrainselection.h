#pragma once

#include <array>

#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

namespace ZMT::CORE::GRID {

struct GridTerrainFrame;

/// Chooses the tiles of one picture, asks for those that are missing, and tells the chosen ones what lies
/// beside them. Leaves its findings in the frame states and neighbours of the tiles. Calls no OpenGL.
class GridTerrainSelection {
public:
    explicit GridTerrainSelection(GridTerrainFrame & frame) : frame_(frame) {}

    void run();

    /// What lies behind a border of `tile`: a tile of the same level, or a coarser one that is not refined.
    /// Null at the border of the terrain. The tiles above `tile` are refined.
    static NBX::SO<GridTerrainTile> findNeighbor(const NBX::SO<GridTerrainTile> & tile,
                                                 GridTerrainTile::NeighborIndex index);

private:
    using Tile = NBX::SO<GridTerrainTile>;
    using Children = std::array<Tile, 4>;

    void select(const Tile & tile, int clip);
    bool isToBeRefined(const GridTerrainTile & tile) const;
    bool refine(GridTerrainTile & tile, int clip);
    void request(const GridTerrainTile & tile, const Children & children);
    void choose(const Tile & tile);
    void setNeighbors(const Tile & tile);

    GridTerrainFrame & frame_;
};

} // namespace ZMT::CORE::GRID
