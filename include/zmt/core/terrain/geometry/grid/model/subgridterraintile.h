#pragma once

#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintileindexbuffer.h>

namespace ZMT::CORE::GRID {

/// A part of a tile whose heights it shows: what splits where images are finer than the terrain, and where a
/// terrain has no detail of its own. Owns its children, keeps the tile with the heights, watches its parent.
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

private:
    NBX::SO<GridTerrainTile> master_;
    NBX::WO<GridTerrainTile> parent_;
    ChildIndex index_;
    IndexRange range_;
    std::array<NBX::SO<GridTerrainTile>, 4> children_;
    NBX::Bounds bounds_;
};

} // namespace ZMT::CORE::GRID
