#pragma once

#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintileindexbuffer.h>

namespace ZMT::CORE::GRID {

/// A part of a tile whose heights it shows: what splits where images are finer than the terrain, and where a
/// terrain has no detail of its own. Owns its children; watches its parent and the tile with the heights,
/// which own it. The halves go down to single cells.
class SubGridTerrainTile : public GridTerrainTile {
    NBX_CLASS(SubGridTerrainTile, GridTerrainTile)
public:
    /// `master` has the heights; `range` is this tile's part of the master's triangles.
    SubGridTerrainTile(NBX::SO<GridTerrainTile> master, NBX::SO<GridTerrainTile> parent, ChildIndex index,
                       IndexRange range);
    ~SubGridTerrainTile() override;

    NBX::SO<GridTerrainTile> parent() const override;
    unsigned gridLevel() const override;
    int level() const override;
    int detailLevel() const override;
    bool hasChildren(bool loadedOnly) const override;
    NBX::SO<GridTerrainTile> child(unsigned index, bool onlyExisting) override;
    ChildIndex childIndex(const NBX::SO<GridTerrainTile> & tile) const override;
    Matrix grid2geoTf() const override;
    Matrix grid2visTf() const override;
    Matrix geo2gridTf() const override;
    Matrix vis2gridTf() const override;
    const NBX::Bounds & gridBoundingBox() const override;
    NBX::SO<GridTerrainTileData> tileData() const override;
    NBX::SO<GridTerrainTileData> requestTileData(double priority, bool blocking, bool * failed) override;
    void unloadChildren() override;
    void unloadChild(unsigned index) override;
    void unloadData() override;
    unsigned renderGeometry(NBX::EngineGL * engine, bool colors) const override;
    bool hasUndefValues() const override;
    NBX::SO<GridTerrainTileIndexBuffer> indexBuffer() const override;
    NBX::SO<GridTerrainTileVertexBuffer> vertexBuffer() override;

    /// Drops the parts below that nobody has asked for since `time`; those asked for since the last call were
    /// so `now`. In seconds of frames of the terrain.
    void dropUnwalked(double time, double now);

private:
    /// The part of the master's cells: its first column and row, and how many there are along a side.
    struct Cells {
        unsigned x = 0, y = 0, size = 0;
    };

    /// Reported when it is gone.
    NBX::SO<GridTerrainTile> checkedMaster() const;
    /// Whether this part lies along a border of the master.
    bool isAtBorder(NeighborIndex border) const;

    NBX::WO<GridTerrainTile> master_;
    NBX::WO<GridTerrainTile> parent_;
    ChildIndex index_;
    IndexRange range_;
    std::array<NBX::SO<GridTerrainTile>, 4> children_;
    std::array<double, 4> walkTimes_{}; ///< when `dropUnwalked` last found that the child was asked for
    std::array<bool, 4> areWalked_{};   ///< since the last `dropUnwalked`
    Cells cells_;
    mutable NBX::Bounds bounds_;          ///< undefined where nothing is defined
    mutable bool boundsAreKnown_ = false; ///< false until the heights were in memory
};

} // namespace ZMT::CORE::GRID
