#pragma once

#include <utility>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/hybrid/microdata.h>

namespace NBX {
class PolygonSet;
class Progress;
} // namespace NBX

namespace ZMT::RASTER {
template <class T> class SimpleRasterData;
}

namespace ZMT::CORE {

/// The triangulation of one cell. Its vertices are the corners of the triangles, three each, so that shared
/// ones are repeated; their coordinates are the container's, and local. For one thread.
class MicroTrianglesData : public MicroData {
    NBX_CLASS(MicroTrianglesData, MicroData)
public:
    using Point = NBX::Vector3Base<double>;

    /// `indices` are vertex numbers of `container`, three a triangle.
    MicroTrianglesData(const HybridData * container, std::vector<unsigned> indices);
    ~MicroTrianglesData() override;

    /// Computed when first asked for.
    NBX::Bounds boundingBox() const override;

    unsigned vertices() const { return static_cast<unsigned>(indices_.size()); }
    Point vertex(unsigned v) const;
    Point normal(unsigned v) const;
    bool isGridVertex(unsigned v) const;
    /// The container's number of corner `v`.
    unsigned convertToContainerIndex(unsigned v) const;

    /// What a cell does not provide: each is reported as not implemented, and gives an empty result.
    double calculateHeight(const Point & p) const;
    bool hasUndefinedHeight(const Point & p) const;
    bool isUndefinedHeightValue(double height) const;
    std::pair<double, double> getCellSize() const;
    bool resampleRasterData(RASTER::SimpleRasterData<float> * target) const;
    NBX::SO<NBX::PolygonSet> extractMesh(const NBX::Bounds & box, NBX::Progress * progress) const;

private:
    bool isVertex(unsigned v) const;

    std::vector<unsigned> indices_;
    mutable NBX::Bounds bbox_; ///< undefined until first asked for
};

} // namespace ZMT::CORE
