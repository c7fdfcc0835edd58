#pragma once

#include <cstdint>
#include <vector>

#include <nbx/data/dataresource.h>
#include <nbx/object/so.h>
#include <zmt/core/terrain/geometry/grid/model/tileref.h>

#include "tilesamples.h"

namespace ZMT::CORE::GRID {

/// A tile on its way to the file. Those of the finest depth are finished; inner ones have their samples and
/// borders alone, since they name the places of their children in the file.
struct MadeTile {
    /// With the box of its own samples. Its block may be dropped where `stored` has it.
    TileSamples tile;
    /// The block as it will stand in the file; null where that is `tile.block`.
    NBX::SO<NBX::DataResource> stored;
    /// Without a place; of inner tiles nothing.
    TileRef ref;
};

/// Takes tiles in the order of `TileRows`.
class TileSink {
public:
    virtual ~TileSink() = default;
    /// Tiles side by side in a row, all of which comes in pieces. Throws `NBX::IOException`.
    virtual void add(std::uint32_t depth, std::uint32_t row, std::uint32_t firstColumn,
                     std::vector<MadeTile> & tiles) = 0;
};

} // namespace ZMT::CORE::GRID
