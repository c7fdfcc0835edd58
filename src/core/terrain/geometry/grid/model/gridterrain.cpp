// What every terrain of tiles answers in the same way: the tiles think in grid space, callers in geo and
// scene coordinates.

#include <zmt/core/terrain/geometry/grid/model/gridterrain.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "gridposition.h"
#include "gridterraintilequery.h"
#include "tilesurface.h"
#include <nbx/container/sequence/array.h>
#include <nbx/math/isfinite.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/misc/patience.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterrainwalks.h>
#include <zmt/raster/simplerasterdata.h>

namespace ZMT::CORE::GRID {

namespace {

using Point = GridTerrain::Point;

/// The position of `geo` in grid space.
Point inGrid(const GridTerrain & terrain, const Point & geo) {
    return positionInGrid(terrain.grid2geoTf(), terrain.geo2gridTf(), geo);
}

/// The height of what lies at a place of grid space at `height` quantised units.
double heightInGeo(const GridTerrain & terrain, const Point & grid, double height) {
    return std::isfinite(height) ? (terrain.grid2geoTf() * Point(grid.x, grid.y, height)).y : noHeight;
}

/// Whether a cell of the raster lies on the terrain.
bool meetsACell(const GridTerrain & terrain, const RASTER::SimpleRasterData<float> & raster) {
    const NBX::Bounds & box = terrain.geoBoundingBox();
    const auto meets = [](double first, double cellSize, unsigned cells, double low, double high) {
        const double inside = std::max(std::ceil((low - first) / cellSize), 0.0);
        return inside < cells && first + inside * cellSize <= high;
    };
    return box.isDefined() &&
           meets(raster.minX(), raster.cellSizeX(), raster.cellsX(), box.getLLF().x, box.getURB().x) &&
           meets(raster.minY(), raster.cellSizeY(), raster.cellsY(), box.getLLF().z, box.getURB().z);
}

} // namespace

NBX_CLASS_IMPL(GridTerrain, Terrain)

GridTerrain::GridTerrain() = default;

NBX::SO<GeometryData> GridTerrain::data() const {
    return nullptr;
}

NBX::SO<GeometryPatch> GridTerrain::root() const {
    return nullptr;
}

GridTerrain::Point GridTerrain::origin() const {
    const NBX::Bounds & box = geoBoundingBox();
    return box.isDefined() ? Point(box.getLLF().x, 0.0, box.getLLF().z) : Point();
}

double GridTerrain::calculateHeight(const Point & p, bool loadedOnly) const {
    const NBX::SO<GridTerrainTile> root = rootTile();
    if (!root) return noHeight;
    const Point grid = inGrid(*this, p);
    return heightInGeo(*this, grid, root->verticalRayIntersection(grid.x, grid.y, loadedOnly));
}

bool GridTerrain::hasUndefinedHeight(const Point & p, bool loadedOnly) const {
    return isUndefinedHeightValue(calculateHeight(p, loadedOnly));
}

bool GridTerrain::isUndefinedHeightValue(double height) const {
    return !(height > noHeight);
}

std::pair<double, double> GridTerrain::getCellSize() const {
    return {grid2geoTf()(0, 0), grid2geoTf()(2, 1)};
}

// Coarse tiles serve a coarse raster: reading the finest ones for it could take all of the terrain.
bool GridTerrain::resampleRasterData(RASTER::SimpleRasterData<float> * target) const {
    NBX_CHECK(target, L"no target");
    const NBX::SO<GridTerrainTile> root = rootTile();
    if (!target || !root) return false;
    std::fill_n(target->cells(), std::size_t(target->cellsX()) * target->cellsY(),
                static_cast<float>(target->undefValue()));
    ResamplingParam param;
    param.target = target;
    root->resampleRasterData(param);
    return meetsACell(*this, *target);
}

NBX::SO<NBX::PolygonSet> GridTerrain::extractMesh(const NBX::Bounds & box, NBX::Progress * progress) const {
    const NBX::SO<GridTerrainTile> root = rootTile();
    if (!root || !box.isDefined()) return nullptr;
    ExtractMeshParam param;
    param.box = NBX::Bounds(inGrid(*this, box.getLLF()), inGrid(*this, box.getURB()));
    param.progress = progress;
    root->extractMesh(param);
    if (param.isCancelled || param.indices.empty()) return nullptr;
    for (Point & vertex : param.vertices)
        vertex = grid2geoTf() * vertex;
    return new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles,
                               new NBX::Array<Point>(std::move(param.vertices)),
                               new NBX::Array<unsigned>(std::move(param.indices)));
}

GridTerrain::Matrix GridTerrain::grid2visTf() const {
    return Matrix::translation(GeoTransformation::geo2nbxOffset()) * grid2geoTf();
}

GridTerrain::Matrix GridTerrain::vis2gridTf() const {
    return geo2gridTf() * Matrix::translation(GeoTransformation::nbx2geoOffset());
}

NBX::Bounds GridTerrain::visBoundingBox() const {
    return GeoTransformation::geo2nbxTf(geoBoundingBox());
}

bool GridTerrain::rayIntersection(const NBX::Ray & ray, Point & point, bool loadedOnly) const {
    const NBX::SO<GridTerrainTile> root = rootTile();
    Point hit;
    if (!root || !root->rayIntersection(vis2gridTf() * ray, hit, loadedOnly)) return false;
    point = grid2visTf() * hit;
    return true;
}

GridTerrain::HeightAnswer GridTerrain::heightWithin(double seconds, const Point & p) const {
    const NBX::SO<GridTerrainTile> root = rootTile();
    if (!root) return {noHeight, false};
    const Patience patience(seconds);
    GridTerrainTileQuery query(false);
    const Point grid = inGrid(*this, p);
    return {heightInGeo(*this, grid, query.height(*root, grid.x, grid.y)), query.isCoarse()};
}

GridTerrain::RayAnswer GridTerrain::rayIntersectionWithin(double seconds, const NBX::Ray & ray) const {
    const NBX::SO<GridTerrainTile> root = rootTile();
    if (!root) return {std::nullopt, false};
    const Patience patience(seconds);
    GridTerrainTileQuery query(false);
    Point hit;
    const bool isHit = query.firstHit(*root, vis2gridTf() * ray, hit);
    return {isHit ? std::optional(grid2visTf() * hit) : std::nullopt, query.isCoarse()};
}

NBX::Bounds GridTerrain::superGeoBoundingBox() const {
    return gridBoundingBox().transform(grid2geoTf());
}

NBX::Bounds GridTerrain::boundingBox() const {
    return visBoundingBox();
}

} // namespace ZMT::CORE::GRID
