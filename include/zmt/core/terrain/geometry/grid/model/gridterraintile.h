#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/math/ray.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>
#include <nbx/object/wo.h>

namespace NBX {
class EngineGL;
class ViewInfo;
} // namespace NBX

namespace ZMT::CORE {
class GeometryPatch;
}

namespace ZMT::CORE::GRID {

class GridTerrain;
class GridTerrainTileData;
class GridTerrainTileIndexBuffer;
class GridTerrainTileVertexBuffer;
struct ExtractMeshParam;
struct GetLightMapParam;
struct ResamplingParam;

/// A node of the quadtree of a `GridTerrain`. It knows where it lies, what surrounds it in this frame, and
/// how to get its heights and its buffers, which the memory managers of the engine own: the tile asks for
/// them again once they are gone. Children are owned downwards. Render thread.
///
/// Spaces: grid (finest cells in x and y, quantised heights in z), geo (map coordinates, height second) and
/// vis (those of the scene, height second).
class GridTerrainTile : public NBX::SharedObj {
    NBX_CLASS(GridTerrainTile, NBX::SharedObj)
public:
    using Point = NBX::Vector3Base<double>;
    using Matrix = NBX::Matrix4x4Base<double>;

    /// Bit 0 says the upper half in x, bit 1 that in y.
    enum ChildIndex { CI_LowXLowY = 0, CI_HighXLowY = 1, CI_LowXHighY = 2, CI_HighXHighY = 3 };
    /// The borders of a tile, and the neighbours behind them.
    enum NeighborIndex { NI_LowX = 0, NI_LowY = 1, NI_HighX = 2, NI_HighY = 3 };
    /// What became of the tile in this frame.
    enum FrameState {
        FS_Drawn = 0,   ///< chosen for drawing
        FS_Refined = 1, ///< its children are drawn in its place
        FS_Culled = 2,  ///< outside of the view
        FS_Occluded = 3 ///< chosen, but nothing of it was seen
    };

    ~GridTerrainTile() override;

    /// Null for the root.
    virtual NBX::SO<GridTerrainTile> parent() const = 0;
    /// L of the terrain.
    virtual unsigned gridLevel() const = 0;
    /// Depth number d: samples lie 2^d finest cells apart. Negative below the finest heights.
    virtual int level() const = 0;
    /// The level of the heights that the tile shows: its own, or that of the tile whose part it is.
    virtual int detailLevel() const = 0;
    /// With `loadedOnly`, whether a child has a block of its own; otherwise whether it can be split at all.
    virtual bool hasChildren(bool loadedOnly) const = 0;
    /// Made on demand. Null where nothing lies; with `onlyExisting`, also where no block lies.
    virtual NBX::SO<GridTerrainTile> child(unsigned index, bool onlyExisting) = 0;
    /// 0 where `tile` is no child.
    virtual ChildIndex childIndex(const NBX::SO<GridTerrainTile> & tile) const = 0;
    virtual Matrix grid2geoTf() const = 0;
    virtual Matrix grid2visTf() const = 0;
    virtual Matrix geo2gridTf() const = 0;
    virtual Matrix vis2gridTf() const = 0;
    /// Of the heights of this tile and all below it, in grid space; undefined until the tile was read.
    virtual const NBX::Bounds & gridBoundingBox() const = 0;
    virtual NBX::Bounds geoBoundingBox() const;
    virtual NBX::Bounds visBoundingBox() const;
    /// Whether the distance of two samples, where the tile is nearest to the eye, shows larger than
    /// `threshold` pixels. `viewInfo` is in grid space. False at level 0.
    virtual bool shouldBeRefined(const NBX::ViewInfo * viewInfo, unsigned width, unsigned height,
                                 double threshold) const;
    /// Null when they are not in memory.
    virtual NBX::SO<GridTerrainTileData> tileData() const = 0;
    /// The heights, or null while they are on their way. `failed`, where given, becomes true when the last
    /// read failed.
    virtual NBX::SO<GridTerrainTileData> requestTileData(double priority, bool blocking, bool * failed) = 0;
    virtual void unloadChildren() = 0;
    virtual void unloadChild(unsigned index) = 0;
    /// Drops heights, buffers and requests of this tile and of all below it.
    virtual void unloadData() = 0;
    /// Draws the tile and what closes its borders towards coarser neighbours; the number of triangles. Inside
    /// the bracket of the terrain.
    virtual unsigned renderGeometry(NBX::EngineGL * engine, bool colors) const;
    /// Some sample is undefined.
    virtual bool hasUndefValues() const = 0;
    /// That of the terrain.
    virtual NBX::SO<GridTerrainTileIndexBuffer> indexBuffer() const = 0;
    /// Made when the heights are there; null otherwise.
    virtual NBX::SO<GridTerrainTileVertexBuffer> vertexBuffer() = 0;
    /// Where `ray`, in grid space, first meets the tile. With `loadedOnly` nothing is read.
    virtual bool rayIntersection(const NBX::Ray & ray, Point & point, bool loadedOnly) const;
    /// The height, in quantised units, at a position in grid space; negative infinity without any.
    virtual double verticalRayIntersection(double x, double y, bool loadedOnly) const;

    /// What lies beside this tile at its level or above, where it is drawn; null without one. Where that is a
    /// part of coarser heights that is split further, it counts as drawn, since all its parts show the same.
    NBX::SO<GridTerrainTile> neighbor(NeighborIndex index) const { return neighbors_[index].lock(); }
    void neighbor(NeighborIndex index, const NBX::SO<GridTerrainTile> & tile) { neighbors_[index] = tile; }
    FrameState frameState() const { return frameState_; }
    void frameState(FrameState state) { frameState_ = state; }
    /// Measured by the last occlusion query.
    std::uint32_t visibleFragments() const { return visibleFragments_; }
    void visibleFragments(std::uint32_t count) { visibleFragments_ = count; }
    /// The tile as textures see it: one object while the tile lives, since caches of textures know patches by
    /// their identity.
    NBX::SO<GeometryPatch> geometryPatchHACK(NBX::SO<GridTerrain> terrain) const;

    // Walks over the tree below this tile; the records say what is read and where it stops.
    void extractMesh(ExtractMeshParam & param);
    void getLightMapRaster(GetLightMapParam & param);
    void resampleRasterData(ResamplingParam & param);

    /// The children that exist, by the distance in the plane between `eye`, in grid space, and their boxes.
    std::vector<NBX::SO<GridTerrainTile>> distanceSortedChildren(const Point & eye) const;

protected:
    GridTerrainTile();

    /// The row of the border tables that closes border `index` towards what is drawn there: the difference of
    /// the levels of detail, or the last row; 0 where nothing is to be closed.
    unsigned borderRow(NeighborIndex index) const;

private:
    friend class GridTerrainTileQuery;
    bool allChildrenAreLoaded() const;

    std::array<NBX::WO<GridTerrainTile>, 4> neighbors_;
    FrameState frameState_ = FS_Culled;
    std::uint32_t visibleFragments_ = 0;
    mutable NBX::SO<GeometryPatch> patch_; ///< null until it is asked for
};

} // namespace ZMT::CORE::GRID
