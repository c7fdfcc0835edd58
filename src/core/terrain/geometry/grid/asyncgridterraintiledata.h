#pragma once

#include <nbx/data/dataresource.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/model/gridterraintiledata.h>

#include "core/terrain/geometry/grid/model/terrainfileformat.h"

namespace ZMT::CORE::GRID {

/// The samples of a block as it was read.
class AsyncGridTerrainTileData : public GridTerrainTileData {
    NBX_CLASS(AsyncGridTerrainTileData, GridTerrainTileData)
public:
    /// `block` is a sound one of the tile at `place`, whose bytes nobody else changes.
    AsyncGridTerrainTileData(const TerrainFileFormat::TilePlace & place, NBX::SO<NBX::DataResource> block);

    unsigned tileLevel() const override { return place_.tileLevel; }
    unsigned step() const override { return 1U << place_.depth; }
    unsigned tileX() const override { return place_.tileX; }
    unsigned tileY() const override { return place_.tileY; }
    unsigned cells() const override { return cells_; }
    std::uint16_t value(unsigned x, unsigned y) const override {
        return samples_[x + std::size_t(y) * cells_];
    }
    unsigned borderLODs() const override { return place_.tileLevel; }
    unsigned borderLODValues(unsigned k) const override;
    std::uint16_t borderValue(unsigned border, unsigned k, unsigned i) const override;
    const std::uint16_t * samples() const override { return samples_; }

    /// Some sample is 0.
    bool hasUndefValues() const;

private:
    TerrainFileFormat::TilePlace place_;
    unsigned cells_;
    NBX::SO<NBX::DataResource> block_;
    const std::uint16_t * samples_; ///< in `block_`
};

} // namespace ZMT::CORE::GRID
