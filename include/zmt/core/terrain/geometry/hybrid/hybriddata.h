#pragma once

#include <vector>

#include <zmt/core/terrain/geometry/regular/griddata.h>

namespace NBX {
template <class T> class Iterator2D;
}

namespace ZMT::CORE {

class MicroTrianglesData;

/// A grid, any cell of which may be replaced by a small triangulation, its micro-structure, whose corners
/// are grid vertices and further ones. `CreateHybridData` makes it.
///
/// The vertices of the grid come first in the numbering, then those that are not on the grid, which have no
/// normals of their own. Height queries and `extractMesh` know the vertices of the grid alone, so that they
/// may differ from a micro-structure. Immutable once made: may be read from any thread.
class HybridData : public GridData {
    NBX_STORED_CLASS(HybridData, GridData)
public:
    using MicroIndices = NBX::Iterator2D<std::vector<unsigned>>;

    /// `nonGridVertices` are in geo coordinates. `microIndices` has one list of vertex numbers a raster cell,
    /// three a triangle, or empty for a plain cell; it is kept.
    HybridData(const RASTER::RasterData * raster, const std::vector<Point> & nonGridVertices,
               MicroIndices * microIndices);
    ~HybridData() override;

    NBX::Bounds boundingBox() const override;
    unsigned vertices() const override { return totalVertices_; }
    Point vertex(unsigned v) const override;
    /// Straight up for a vertex that is not on the grid.
    Point normal(unsigned v) const override;
    using GridData::normal;
    using GridData::vertex;
    bool hasCellShapes() const override { return true; }
    /// Its micro-structure.
    NBX::SO<NBX::Shape> cellShape(unsigned x, unsigned y) const override;
    std::vector<unsigned> cellCorners(unsigned x, unsigned y) const override;

    bool isGridVertex(unsigned v) const { return v < gridVertices_; }
    /// The micro-structure of a cell, named by its lowest vertex, made anew; null for a plain cell. It must
    /// not outlive this object.
    NBX::SO<MicroTrianglesData> microData(unsigned x, unsigned y) const;

    /// Throws `NBX::IOError` where the stored parts do not fit together.
    void serialize(NBX::SerializationManager & m) override;

private:
    HybridData();

    void countVertices();
    void checkMicroIndices() const;

    std::vector<Point> nonGridVertices_; ///< in local coordinates
    NBX::SO<MicroIndices> microIndices_;
    NBX::Bounds nonGridBox_;
    unsigned gridVertices_ = 0, totalVertices_ = 0;
};

} // namespace ZMT::CORE
