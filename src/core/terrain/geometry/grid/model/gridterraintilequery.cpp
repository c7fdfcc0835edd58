// Children are entered in the order in which the ray enters their boxes, and not in that of their distance
// from its origin in the plane: boxes of defined heights are smaller than the squares that they lie in, so
// that a farther one may come first. A child that was never read has no box; its square stands in, with the
// heights of its parent.

#include "gridterraintilequery.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

namespace ZMT::CORE::GRID {

namespace {

using Point = GridTerrainTileQuery::Point;

constexpr double s_infinity = std::numeric_limits<double>::infinity();
/// What roundings may do to a ray, in cells and quantised units. The triangles decide.
constexpr double s_boxMargin = 1e-6;

/// The parameter where `ray` enters the box; infinite where it misses.
double enter(const GridRay & ray, const NBX::Bounds & box) {
    if (!box.isDefined()) return s_infinity;
    RaySpan span;
    for (unsigned axis = 0; axis < 3; ++axis)
        span.clip(ray.origin()[axis], ray.direction()[axis], box.getLLF()[axis] - s_boxMargin,
                  box.getURB()[axis] + s_boxMargin);
    return span.isEmpty() ? s_infinity : span.begin;
}

} // namespace

GridTerrainTileQuery::~GridTerrainTileQuery() {
    if (reader_.isIncomplete() && !isTold_)
        NBX_FAILURE(L"a part of the terrain cannot be read: coarser heights answer in its place");
}

bool GridTerrainTileQuery::goesOnBelow(const GridTerrainTile & tile) const {
    return tile.hasChildren(true) && (!reader_.loadedOnly() || tile.allChildrenAreLoaded());
}

double GridTerrainTileQuery::height(GridTerrainTile & start, double x, double y) {
    TileSquare square = TileSquare::of(start);
    for (NBX::SO<GridTerrainTile> tile(&start); tile;) {
        NBX::SO<GridTerrainTileData> data;
        const bool isKnown = reader_.learn(*tile, data);
        if (isKnown && !tile->gridBoundingBox().containsPointInPlane({x, y, 0.0}, 0, 1)) break;
        if (!isKnown || !goesOnBelow(*tile)) {
            if (isKnown) data = reader_.heights(*tile);
            return data ? data->calculateVerticalRayIntersection(x, y) : -s_infinity;
        }
        const unsigned child = square.childAt(x, y);
        square = square.quarter(child);
        tile = tile->child(child, false);
    }
    return -s_infinity;
}

bool GridTerrainTileQuery::firstHit(GridTerrainTile & tile, const NBX::Ray & ray, Point & point) {
    const GridRay gridRay(ray);
    if (!gridRay.isValid()) return false;
    nearest_ = s_infinity;
    follow(tile, TileSquare::of(tile), gridRay);
    if (nearest_ == s_infinity) return false;
    point = gridRay.point(nearest_);
    return true;
}

void GridTerrainTileQuery::follow(GridTerrainTile & tile, const TileSquare & square, const GridRay & ray) {
    NBX::SO<GridTerrainTileData> data;
    if (!reader_.learn(tile, data)) return test(data.get(), square, ray);
    if (!(enter(ray, tile.gridBoundingBox()) < nearest_)) return;
    if (!goesOnBelow(tile)) return test(reader_.heights(tile).get(), square, ray);
    for (const Entered & child : enteredChildren(tile, square, ray)) {
        if (!(child.enter < nearest_)) break;
        follow(*child.tile, child.square, ray);
    }
}

std::vector<GridTerrainTileQuery::Entered> GridTerrainTileQuery::enteredChildren(GridTerrainTile & tile,
                                                                                 const TileSquare & square,
                                                                                 const GridRay & ray) const {
    const NBX::Bounds & outer = tile.gridBoundingBox();
    std::vector<Entered> entered;
    for (unsigned i = 0; i < 4; ++i) {
        const NBX::SO<GridTerrainTile> child = tile.child(i, false);
        if (!child) continue;
        const TileSquare quarter = square.quarter(i);
        const NBX::Bounds place(Point(quarter.x, quarter.y, outer.getLLF().z),
                                Point(quarter.endX(), quarter.endY(), outer.getURB().z));
        const NBX::Bounds & box = child->gridBoundingBox();
        const double parameter = enter(ray, box.isDefined() ? box : place);
        if (parameter < s_infinity) entered.push_back({parameter, child, quarter});
    }
    std::stable_sort(entered.begin(), entered.end(),
                     [](const Entered & a, const Entered & b) { return a.enter < b.enter; });
    return entered;
}

void GridTerrainTileQuery::test(const GridTerrainTileData * data, const TileSquare & square,
                                const GridRay & ray) {
    const GridRectangle part{square.x, square.y, square.endX(), square.endY()};
    if (data) findFirstHit(*data, part, ray, nearest_);
}

} // namespace ZMT::CORE::GRID
