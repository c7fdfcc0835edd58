#pragma once

#include <vector>

#include <nbx/math/area.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>

namespace NBX {
class Shape;
}

namespace ZMT::RASTER {
class RasterData;
}

namespace ZMT::CORE {

/// Vertices on a regular grid, one a raster cell: column maps to x, row to z, the value to y. Vertex
/// `index(x, y)` is `x + y * sizeX()`.
///
/// Undefined cells lie a tenth of the height range below the lowest defined one, so that walls and normals
/// stay sane; a raster that has any is replaced by a private copy, which has that height as its undefined
/// value. Where all defined heights are the same, or too near for a `float` below them, that is a defined
/// height too: then all cells as low count as undefined. Ask the given raster where that matters. Immutable
/// once made: may be read from any thread. `GridPatchRayIntersector` tells how heights between the vertices
/// differ from the picture.
class GridData : public GeometryData {
    NBX_STORED_CLASS(GridData, GeometryData)
public:
    /// Keeps `raster`, or a copy of it. Scans every cell once.
    explicit GridData(const RASTER::RasterData * raster);
    ~GridData() override;

    NBX::Bounds boundingBox() const override { return bbox_; }
    unsigned vertices() const override { return sizeX_ * sizeY_; }
    Point vertex(unsigned v) const override;
    Point normal(unsigned v) const override;
    double calculateHeight(const Point & p) const override;
    bool hasUndefinedHeight(const Point & p) const override;
    bool isUndefinedHeightValue(double height) const override;
    std::pair<double, double> getCellSize() const override;
    bool resampleRasterData(RASTER::SimpleRasterData<float> * target) const override;
    NBX::SO<NBX::PolygonSet> extractMesh(const NBX::Bounds & box, NBX::Progress * progress) const override;
    Point origin() const override { return origin_; }
    Indices * newIndexIterator(const NBX::Bounds & box) const override;

    /// Size of a cell in x, of a height unit, and of a cell in z.
    virtual Point scale() const { return scale_; }
    /// Numbers of the vertices of `domain`, row by row, its last column and row included. `domain` counts
    /// cells; one that does not lie on the grid is reported and gives none. The caller takes the result.
    virtual Indices * newIndexIterator(const NBX::Area & domain) const;
    /// Whether some cell may have a shape of its own: false lets whoever draws skip the question.
    virtual bool hasCellShapes() const { return false; }
    /// What stands in the place of the cell with the lowest vertex (x, y), in local coordinates, made anew;
    /// null for a plain cell, which is the two triangles of its corners. It must not outlive the grid.
    virtual NBX::SO<NBX::Shape> cellShape(unsigned x, unsigned y) const;
    /// The vertex numbers at the corners of the triangles of that shape, three each; none for a plain cell.
    virtual std::vector<unsigned> cellCorners(unsigned x, unsigned y) const;

    unsigned sizeX() const { return sizeX_; }
    unsigned sizeY() const { return sizeY_; }
    unsigned index(unsigned x, unsigned y) const;
    /// Not range-checked, as the innermost operation of painting.
    Point vertex(unsigned x, unsigned y) const {
        return {scale_.x * x, scale_.y * heightAt(x, y), scale_.z * y};
    }
    /// Central differences; neighbours are clamped to the grid, so that slopes count half at the border.
    Point normal(unsigned x, unsigned y) const;
    const NBX::SO<const RASTER::RasterData> & rasterData() const { return raster_; }
    Points * newVertexIterator(const NBX::Area & domain) const;
    Points * newNormalIterator(const NBX::Area & domain) const;

    using GeometryData::newIndexIterator;
    using GeometryData::newNormalIterator;
    using GeometryData::newVertexIterator;

    void serialize(NBX::SerializationManager & m) override;

protected:
    GridData();

private:
    double heightAt(unsigned x, unsigned y) const {
        return cells_ ? static_cast<double>(cells_[x + std::size_t(y) * sizeX_]) : slowHeightAt(x, y);
    }
    double slowHeightAt(unsigned x, unsigned y) const;
    bool contains(const NBX::Area & domain) const;
    void readLayout();
    void scanHeights();
    void replaceUndefinedHeights(double minimum, double maximum);

    NBX::SO<const RASTER::RasterData> raster_;
    Point origin_, scale_;
    NBX::Bounds bbox_;
    unsigned sizeX_ = 0, sizeY_ = 0;
    /// The raster's own cells where it stores plain floats, else null.
    const float * cells_ = nullptr;
};

/// Reports each side of `domain` that does not lie on `grid` with at least one cell.
void checkDomain(const GridData * grid, const NBX::Area & domain);

} // namespace ZMT::CORE
