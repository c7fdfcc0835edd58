#include "terrainlayout.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

#include <zmt/core/terrain/geometry/grid/model/gridterraintile.h>

namespace ZMT::CORE::GRID {

using namespace TerrainFileFormat;

namespace {

constexpr const wchar_t * s_tooLarge = L"The terrain extent is too large.";

/// Cell sizes that differ by less are the same.
constexpr double s_sameSize = 1e-6;

} // namespace

TerrainFailure TerrainFailure::tooLarge() {
    return {s_tooLarge, s_tooLarge};
}

TerrainFailure TerrainFailure::empty() {
    return {s_tooLarge, L"the raster has no height at all; take another one"};
}

TerrainLayout::TerrainLayout(const NBX::SO<RASTER::RasterBand> & band, unsigned level,
                             const NBX::SO<GridTerrain> & oldTerrain) {
    if (std::min(band->cellsX(), band->cellsY()) < 2) {
        const std::wstring text = L"The raster is only one cell wide. Take one of two by two cells at least.";
        throw TerrainFailure(text, text);
    }
    if (oldTerrain && oldTerrain->rootTile())
        lieOn(oldTerrain, band);
    else
        lieOnBand(band, level);
}

void TerrainLayout::lieOnBand(const NBX::SO<RASTER::RasterBand> & band, unsigned level) {
    const std::uint32_t smaller = std::min(band->cellsX(), band->cellsY());
    const std::uint32_t larger = std::max(band->cellsX(), band->cellsY());
    header.tileLevel = std::min(level, maxTileLevel);
    while (1U << header.tileLevel >= smaller)
        --header.tileLevel;
    if (larger >= 0x80000002) throw TerrainFailure::tooLarge();
    while ((std::uint64_t(1) << (header.tileLevel + header.treeDepth)) + 1 < larger)
        ++header.treeDepth;
    header.cellSizeX = band->cellSizeX();
    header.cellSizeY = band->cellSizeY();
    header.originX = band->minX();
    header.originY = band->minY();
    source = std::make_unique<BandHeightSource>(band);
}

/// The square stays that of the old terrain; it is divided until its cells are not larger than the band's.
void TerrainLayout::lieOn(const NBX::SO<GridTerrain> & oldTerrain, const NBX::SO<RASTER::RasterBand> & band) {
    header.tileLevel = oldTerrain->gridLevel();
    header.treeDepth = static_cast<std::uint32_t>(oldTerrain->rootTile()->level());
    std::tie(header.cellSizeX, header.cellSizeY) = oldTerrain->getCellSize();
    std::uint32_t halvings = 0;
    while (header.cellSizeX > band->cellSizeX() * (1.0 + s_sameSize) ||
           header.cellSizeY > band->cellSizeY() * (1.0 + s_sameSize)) {
        header.cellSizeX /= 2.0;
        header.cellSizeY /= 2.0;
        ++halvings;
        if (header.tileLevel + ++header.treeDepth > maxExtentLevel) throw TerrainFailure::tooLarge();
    }
    header.originX = oldTerrain->geoBoundingBox().getLLF().x;
    header.originY = oldTerrain->geoBoundingBox().getLLF().z;
    const std::uint32_t points = (1U << (header.tileLevel + header.treeDepth)) + 1;
    auto resampled = std::make_unique<ResampledHeightSource>(
        band, RASTER::RasterGrid{points, points, header.originX, header.originY, header.cellSizeX,
                                 header.cellSizeY});
    if (!resampled->isOnBand()) {
        const std::wstring text = L"The raster lies outside of the old terrain. Make a new one of both.";
        throw TerrainFailure(text, text);
    }
    source = std::move(resampled);
    old = std::make_unique<OldTerrainHeights>(oldTerrain, halvings);
    // Where the tile above is as fine as the band, there is nothing to add.
    const auto hasDetail = [this](double cellSize, double bandCellSize) {
        return std::ldexp(cellSize, static_cast<int>(sourceDepth) + 1) > bandCellSize * (1.0 + s_sameSize);
    };
    while (sourceDepth < header.treeDepth && !hasDetail(header.cellSizeX, band->cellSizeX()) &&
           !hasDetail(header.cellSizeY, band->cellSizeY()))
        ++sourceDepth;
}

LatticeArea TerrainLayout::area() const {
    const LatticeArea area = source->area();
    if (!old) return area;
    const LatticeArea other = old->area();
    return {std::min(area.minX, other.minX), std::min(area.minY, other.minY), std::max(area.maxX, other.maxX),
            std::max(area.maxY, other.maxY)};
}

HeightScale TerrainLayout::scale(const HeightPyramid & pyramid) const {
    if (!pyramid.hasHeights() && !old) throw TerrainFailure::empty();
    double low = pyramid.minHeight(), high = pyramid.maxHeight();
    if (old) {
        low = std::min(low, old->minHeight());
        high = std::max(high, old->maxHeight());
    }
    return HeightScale::ofRange(low, high);
}

} // namespace ZMT::CORE::GRID
