#include "geometrypatchhack.h"

#include "tilereader.h"
#include "tilesquare.h"
#include <nbx/object/errorhandler.h>
#include <zmt/core/terrain/geometry/base/geometrydata.h>
#include <zmt/core/terrain/geometry/base/stripmesh.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

namespace ZMT::CORE::GRID {

namespace {

/// What a tile deviates from the finest heights is not known.
constexpr double s_unknownError = 0.0;
constexpr double s_noWall = 0.0;

/// The samples that a tile, or the part of one, shows.
struct Samples {
    Samples(const GridTerrainTileData & data, const TileSquare & place)
        : data(data), x(static_cast<unsigned>(place.x / data.step()) - data.tileX()),
          y(static_cast<unsigned>(place.y / data.step()) - data.tileY()),
          cells(static_cast<unsigned>(place.side / data.step())) {}

    std::uint16_t value(unsigned column, unsigned row) const { return data.value(x + column, y + row); }
    NBX::Vector3Base<double> gridPosition(unsigned column, unsigned row) const {
        const double step = data.step();
        return {(double(data.tileX()) + x + column) * step, (double(data.tileY()) + y + row) * step,
                double(value(column, row))};
    }
    /// The two triangles of a cell meet between its upper left and its lower right corner.
    bool hasHalf(unsigned column, unsigned row, unsigned half) const {
        return value(column + half, row + half) != 0 && value(column + 1, row) != 0 &&
               value(column, row + 1) != 0;
    }

    const GridTerrainTileData & data;
    unsigned x, y, cells;
};

} // namespace

NBX_CLASS_IMPL(GeometryPatchHACK, GeometryPatch)

GeometryPatchHACK::GeometryPatchHACK(GridTerrainTile * tile, GridTerrain * terrain)
    : GeometryPatch(NBX::Bounds(), s_unknownError, s_noWall, nullptr), tile_(tile), terrain_(terrain) {}

NBX::Bounds GeometryPatchHACK::boundingBox() const {
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    return tile ? tile->visBoundingBox() : NBX::Bounds();
}

NBX::SO<GeometryData> GeometryPatchHACK::data() const {
    const NBX::SO<GridTerrain> terrain = terrain_.lock();
    return terrain ? terrain->data() : nullptr;
}

NBX::SO<GeometryPatch> GeometryPatchHACK::parent() const {
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    const NBX::SO<GridTerrainTile> parent = tile ? tile->parent() : nullptr;
    return parent ? parent->geometryPatchHACK(terrain_.lock()) : nullptr;
}

unsigned GeometryPatchHACK::children() const {
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    return tile && tile->hasChildren(false) ? 4 : 0;
}

NBX::SO<GeometryPatch> GeometryPatchHACK::child(unsigned i) const {
    NBX_CHECK(i < children(), L"i out of range");
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    const NBX::SO<GridTerrainTile> child = tile && i < 4 ? tile->child(i, false) : nullptr;
    if (!child) return nullptr;
    if (!child->gridBoundingBox().isDefined() && !child->requestTileData(tileAtOnce, true, nullptr))
        return nullptr;
    return child->geometryPatchHACK(terrain_.lock());
}

void GeometryPatchHACK::unloadChildren() {
    if (const NBX::SO<GridTerrainTile> tile = tile_.lock()) tile->unloadChildren();
}

GeometryPatch::Description GeometryPatchHACK::description() const {
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    if (!tile) return {"tile", {}, 0, 0};
    const TileSquare place = TileSquare::of(*tile);
    const auto side = static_cast<unsigned>(place.side);
    Description result{"tile", NBX::Area(int(place.x), int(place.y), side, side), 0, 0};
    const NBX::SO<GridTerrainTileData> data = tile->tileData();
    if (!data) return result;
    const Samples samples(*data, place);
    result.vertices = std::uint64_t(samples.cells + 1) * (samples.cells + 1);
    for (unsigned row = 0; row < samples.cells; ++row)
        for (unsigned k = 0; k < 2 * samples.cells; ++k)
            result.triangles += samples.hasHalf(k / 2, row, k % 2);
    return result;
}

StripMesh GeometryPatchHACK::surface(const NBX::Vector3Base<double> & zero) const {
    StripMesh mesh;
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    const NBX::SO<GridTerrainTileData> data = tile ? tile->tileData() : nullptr;
    if (!data) return mesh;
    const Samples samples(*data, TileSquare::of(*tile));
    const GridTerrainTile::Matrix toGeo = tile->grid2geoTf();
    for (unsigned row = 0; row <= samples.cells; ++row)
        for (unsigned column = 0; column <= samples.cells; ++column)
            mesh.vertices.push_back(toGeo * samples.gridPosition(column, row) - zero);
    mesh.appendLattice(samples.cells, samples.cells,
                       [&samples](unsigned column, unsigned row, unsigned half) {
                           return samples.hasHalf(column, row, half);
                       });
    return mesh;
}

bool GeometryPatchHACK::childrenAreInMemory() const {
    const NBX::SO<GridTerrainTile> tile = tile_.lock();
    for (unsigned i = 0; tile && i < 4; ++i) {
        const NBX::SO<GridTerrainTile> child = tile->child(i, false);
        if (child && !child->gridBoundingBox().isDefined()) return false;
    }
    return true;
}

} // namespace ZMT::CORE::GRID
