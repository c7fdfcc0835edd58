#pragma once

#include <vector>

#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/raster/vector/vectorline.h>

namespace ZMT::CORE {

/// Lines as features for `CreateHybridData`.
class BreakLines {
public:
    using Features = std::vector<CreateHybridData::Feature>;

    /// The edges of `lines`, in geo coordinates, as far as they lie on `grid`. Lines without heights lie on
    /// the surface: they get the heights of the grid at their points, and where they cross a grid line;
    /// parts that touch undefined heights are left out, as is what is not finite.
    static Features toFeatures(const GridData & grid, const std::vector<RASTER::VectorLine> & lines);
};

} // namespace ZMT::CORE
