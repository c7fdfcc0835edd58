#include "asyncgridterraintiledata.h"

#include <algorithm>
#include <cstdint>

#include <nbx/data/memorydataresource.h>

namespace ZMT::CORE::GRID {

NBX_CLASS_IMPL(AsyncGridTerrainTileData, GridTerrainTileData)

namespace {

/// Bytes that lie in memory as a file has them may begin anywhere.
NBX::SO<NBX::DataResource> aligned(NBX::SO<NBX::DataResource> block) {
    const auto address = reinterpret_cast<std::uintptr_t>(block->pointer());
    if (address % alignof(std::uint16_t) == 0) return block;
    return new NBX::MemoryDataResource(block->pointer(), block->size());
}

} // namespace

AsyncGridTerrainTileData::AsyncGridTerrainTileData(const TerrainFileFormat::TilePlace & place,
                                                   NBX::SO<NBX::DataResource> block)
    : place_(place), cells_(TerrainFileFormat::samplesPerSide(place.tileLevel)), block_(aligned(block)),
      samples_(static_cast<const std::uint16_t *>(block_->pointer(sizeof(TerrainFileFormat::TileHeader)))) {}

unsigned AsyncGridTerrainTileData::borderLODValues(unsigned k) const {
    return TerrainFileFormat::borderRowSize(place_.tileLevel, k);
}

std::uint16_t AsyncGridTerrainTileData::borderValue(unsigned border, unsigned k, unsigned i) const {
    return samples_[TerrainFileFormat::borderRowStart(place_.tileLevel, border, k) + i];
}

bool AsyncGridTerrainTileData::hasUndefValues() const {
    const std::uint16_t * const end = samples_ + std::size_t(cells_) * cells_;
    return std::find(samples_, end, 0) != end;
}

} // namespace ZMT::CORE::GRID
