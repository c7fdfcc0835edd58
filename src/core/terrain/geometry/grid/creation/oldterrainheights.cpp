#include "oldterrainheights.h"

#include <cmath>

#include <nbx/object/exception.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

namespace ZMT::CORE::GRID {

namespace {

/// The heights of `tile`, without which neither its box nor its children are known.
NBX::SO<GridTerrainTileData> heightsOf(GridTerrainTile & tile) {
    NBX::SO<GridTerrainTileData> data = tile.requestTileData(AsyncFile::topPriority, true, nullptr);
    if (!data) throw NBX::IOError(L"a tile of the old terrain cannot be read");
    return data;
}

} // namespace

OldTile::Merged OldTile::merge(TileSamples & tile, const HeightScale & scale,
                               const std::vector<bool> * isOwn) const {
    if (!data) return {tile.isDefined(), false};
    if (!tile.isDefined()) tile.block.resize(TerrainFileFormat::blockSize(tile.place.tileLevel) / 2);
    const std::uint32_t side = TerrainFileFormat::samplesPerSide(tile.place.tileLevel);
    const double step = std::ldexp(double(data->step()), -static_cast<int>(halvings));
    const auto oldValue = [&](std::uint32_t x, std::uint32_t y) -> double {
        if (halvings == 0) return data->value(x, y);
        return data->calculateVerticalRayIntersection((double(tile.place.tileX) + x) * step,
                                                      (double(tile.place.tileY) + y) * step);
    };
    Merged merged;
    std::uint16_t * const values = tile.values();
    for (std::uint32_t i = 0; i < side * side; ++i) {
        const bool isNew = isOwn ? (*isOwn)[i] : values[i] != 0;
        const double old = isNew ? 0.0 : oldValue(i % side, i / side);
        if (old > 0.0) values[i] = scale.quantised(height0 + old * heightStep);
        merged.hasOld |= old > 0.0 && halvings == 0;
        merged.hasNew |= !(old > 0.0) && values[i] != 0;
    }
    tile.findBox();
    return merged;
}

OldTerrainHeights::OldTerrainHeights(const NBX::SO<GridTerrain> & terrain, std::uint32_t halvings)
    : terrain_(terrain), halvings_(halvings) {
    heightsOf(*terrain->rootTile());
}

LatticeArea OldTerrainHeights::area() const {
    const NBX::Bounds box = terrain_->rootTile()->gridBoundingBox();
    const auto scaled = [this](double value) { return static_cast<std::uint32_t>(value) << halvings_; };
    return {scaled(box.getLLF().x), scaled(box.getLLF().y), scaled(box.getURB().x), scaled(box.getURB().y)};
}

double OldTerrainHeights::minHeight() const {
    return terrain_->geoBoundingBox().getLLF().y;
}

double OldTerrainHeights::maxHeight() const {
    return terrain_->geoBoundingBox().getURB().y;
}

OldTile OldTerrainHeights::tileAt(const TerrainFileFormat::TilePlace & place) const {
    if (++tilesAsked_ > s_tilesKept) {
        terrain_->rootTile()->unloadChildren();
        tilesAsked_ = 1;
    }
    // The place's depth in the old tree: below 0 where that is not as fine.
    const int depth = static_cast<int>(place.depth) - static_cast<int>(halvings_);
    NBX::SO<GridTerrainTile> tile = terrain_->rootTile();
    NBX::SO<GridTerrainTileData> data = heightsOf(*tile);
    while (tile->level() > depth) {
        const int below = tile->level() - depth - 1;
        const std::uint32_t column = place.tileX >> place.tileLevel >> below;
        const std::uint32_t row = place.tileY >> place.tileLevel >> below;
        const unsigned index = (column & 1U) + 2 * (row & 1U);
        if (tile->level() > 0 && !tile->child(index, false)) return {};
        const NBX::SO<GridTerrainTile> child = tile->child(index, true);
        if (!child) break;
        tile = child;
        data = heightsOf(*tile);
    }
    const GridTerrain::Matrix & toGeo = terrain_->grid2geoTf();
    return {data, static_cast<std::uint32_t>(tile->level() - depth), toGeo(1, 3), toGeo(1, 2)};
}

} // namespace ZMT::CORE::GRID
