#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "geometrypatchhack.h"
#include "gridterraintilequery.h"
#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintileindexbuffer.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintilevertexbuffer.h>

namespace ZMT::CORE::GRID {

namespace {

using Point = GridTerrainTile::Point;

/// Squared, in the plane; infinite for what is no number.
double planarDistance2(const NBX::Bounds & box, const Point & eye) {
    const Point to = box.nearestPoint(eye) - eye;
    const double distance = to.x * to.x + to.y * to.y;
    return std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance;
}

} // namespace

NBX_CLASS_IMPL(GridTerrainTile, NBX::SharedObj)

GridTerrainTile::GridTerrainTile() = default;

GridTerrainTile::~GridTerrainTile() = default;

NBX::Bounds GridTerrainTile::geoBoundingBox() const {
    return gridBoundingBox().transform(grid2geoTf());
}

NBX::Bounds GridTerrainTile::visBoundingBox() const {
    return gridBoundingBox().transform(grid2visTf());
}

// Halves of what is finest already show nothing more, so that levels below 0 are not refined either: near the
// eye that would end at tiles of single cells, each a call for two triangles.
bool GridTerrainTile::shouldBeRefined(const NBX::ViewInfo * viewInfo, unsigned, unsigned,
                                      double threshold) const {
    if (!viewInfo || level() <= 0) return false;
    const double half = std::ldexp(0.5, level());
    const Point eye = viewInfo->position() + viewInfo->direction() * viewInfo->nearDistance();
    const Point p = gridBoundingBox().nearestPoint(eye);
    const Point alongX(half, 0.0, 0.0), alongY(0.0, half, 0.0);
    return std::max(viewInfo->screenDistance2(p - alongX, p + alongX),
                    viewInfo->screenDistance2(p - alongY, p + alongY)) > threshold * threshold;
}

unsigned GridTerrainTile::renderGeometry(NBX::EngineGL * engine, bool colors) const {
    const auto vertices = const_cast<GridTerrainTile *>(this)->vertexBuffer();
    const NBX::SO<GridTerrainTileIndexBuffer> indices = indexBuffer();
    if (!vertices || !indices) return 0;
    vertices->bind(engine, colors);
    unsigned triangles = indices->drawElements(indices->tileIndices());
    for (const NeighborIndex border : {NI_LowX, NI_LowY, NI_HighX, NI_HighY})
        if (const unsigned row = borderRow(border))
            triangles += indices->drawBorder(border, row, 0, 1U << gridLevel());
    return triangles;
}

// What counts is the level of the heights on both sides. By the level of the tile a part of coarser heights,
// split for the sake of an image, would draw fins, and what lies beside it would leave a crack.
unsigned GridTerrainTile::borderRow(NeighborIndex index) const {
    const NBX::SO<GridTerrainTile> beside = neighbor(index);
    const NBX::SO<GridTerrainTileIndexBuffer> indices = beside ? indexBuffer() : nullptr;
    if (!indices || indices->borderLODIndices(index).empty()) return 0;
    const int last = static_cast<int>(indices->borderLODIndices(index).size()) - 1;
    return static_cast<unsigned>(std::clamp(beside->detailLevel() - detailLevel(), 0, last));
}

bool GridTerrainTile::rayIntersection(const NBX::Ray & ray, Point & point, bool loadedOnly) const {
    return GridTerrainTileQuery(loadedOnly).firstHit(const_cast<GridTerrainTile &>(*this), ray, point);
}

double GridTerrainTile::verticalRayIntersection(double x, double y, bool loadedOnly) const {
    return GridTerrainTileQuery(loadedOnly).height(const_cast<GridTerrainTile &>(*this), x, y);
}

NBX::SO<GeometryPatch> GridTerrainTile::geometryPatchHACK(NBX::SO<GridTerrain> terrain) const {
    if (!patch_) patch_ = new GeometryPatchHACK(const_cast<GridTerrainTile *>(this), terrain.get());
    return patch_;
}

std::vector<NBX::SO<GridTerrainTile>> GridTerrainTile::distanceSortedChildren(const Point & eye) const {
    std::vector<std::pair<double, NBX::SO<GridTerrainTile>>> children;
    for (unsigned i = 0; i < 4; ++i)
        if (auto child = const_cast<GridTerrainTile *>(this)->child(i, false))
            children.emplace_back(planarDistance2(child->gridBoundingBox(), eye), std::move(child));
    std::stable_sort(children.begin(), children.end(),
                     [](const auto & a, const auto & b) { return a.first < b.first; });
    std::vector<NBX::SO<GridTerrainTile>> sorted;
    sorted.reserve(children.size());
    for (auto & [distance, child] : children)
        sorted.push_back(std::move(child));
    return sorted;
}

bool GridTerrainTile::allChildrenAreLoaded() const {
    for (unsigned i = 0; i < 4; ++i) {
        const auto child = const_cast<GridTerrainTile *>(this)->child(i, false);
        if (child && !child->tileData()) return false;
    }
    return true;
}

} // namespace ZMT::CORE::GRID
