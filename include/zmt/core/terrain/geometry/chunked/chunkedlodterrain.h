#pragma once

#include <nbx/object/wo.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

namespace ZMT::CORE {

class GridData;

/// A terrain that needs no tree computed beforehand: heights of 16 bits and an error for each vertex of a
/// square lattice over them, from which patches cut their meshes when they are first drawn. It starts fast
/// and needs four bytes a vertex, which for large terrains lie in temporary files; `Terrain` with a tree of
/// `CreateGeometryTree` draws fewer triangles for the same error.
///
/// At most 8193 columns and rows are used, without a word. Height queries are answered by the grid itself.
/// Who draws the terrain should hold `root()`: the terrain does not, and a root made again has all its
/// meshes to make again. Used by the thread that draws.
class ChunkedLodTerrain : public Terrain {
    NBX_STORED_CLASS(ChunkedLodTerrain, Terrain)
public:
    class Impl;
    class Patch;

    static constexpr unsigned s_maxSize = 8193;

    /// Reads the heights of `grid` and computes the errors; shows a `Progress`, which cannot be cancelled.
    /// Throws `IOException` where the folder for temporary files has no room.
    explicit ChunkedLodTerrain(GridData * grid);
    ~ChunkedLodTerrain() override;

    NBX::SO<GeometryData> data() const override;
    /// Made when nobody holds it any more; null without a grid.
    NBX::SO<GeometryPatch> root() const override;

    /// `ambient` is the brightness, 0 to 1, where the sun towards which `direction` points does not shine.
    /// Null for less than two columns or rows, when cancelled, and without room for temporary files.
    NBX::SO<TerrainTexture> createStaticLightMap(double ambient, const Point & direction) override;
    /// Null as above.
    NBX::SO<TerrainTexture> createDynamicLightMap() override;

    void acceptChildren(std::vector<NBX::Visitable *> & children) const override;
    void serialize(NBX::SerializationManager & m) override;

    /// Null without a grid.
    const Impl * impl() const;
    /// Scene coordinates of the vertex in column and row 0 at the lowest height.
    Point sceneOrigin() const;
    float cellSizeX() const { return cellSizeX_; }
    float cellSizeY() const { return cellSizeY_; }
    /// Height units in one step of the 16-bit heights and errors.
    float heightScale() const { return heightScale_; }
    /// The lowest height, that of step 0.
    float minHeight() const { return minHeight_; }
    /// The height of all skirts and outer walls, a fifth of the height range below the lowest point.
    float wall() const { return wall_; }
    /// The largest error in steps that the mesh of the root leaves out, so that about 3000 vertices remain.
    unsigned short rootThreshold() const { return rootThreshold_; }
    /// How many times its `approximationError()` a patch may lie from the heights, at least 1. The patches
    /// state the errors of single vertices, which add up; divide the pixels given to
    /// `TerrainPainterGLSettings::setGeometryError` by this, so that no larger error shows.
    double worstErrorRatio() const { return worstErrorRatio_; }

    /// The box, in scene coordinates and without the wall, of the mesh of the patch of `size` by `size`
    /// lattice vertices from (`x`, `y`) on, at `threshold` steps. `wall` is not read.
    NBX::Bounds calculateBoundingBox(unsigned x, unsigned y, unsigned size, unsigned short threshold,
                                     double wall) const;

protected:
    /// For reading.
    ChunkedLodTerrain();

private:
    struct HeightRange {
        double low, high;
    };

    void init();
    HeightRange findHeightRange() const;
    void convertHeights(double low, double scale);
    unsigned short findRootThreshold() const;

    NBX::SO<GridData> grid_;
    NBX::SO<Impl> impl_;
    float minHeight_ = 0.0F;
    float cellSizeX_ = 1.0F, cellSizeY_ = 1.0F;
    float heightScale_ = 1.0F;
    float wall_ = 0.0F;
    unsigned short rootThreshold_ = 0;
    double worstErrorRatio_ = 1.0;
    mutable NBX::WO<Patch> root_;
};

} // namespace ZMT::CORE
