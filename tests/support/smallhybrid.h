#pragma once

#include <nbx/container/sequence/array2d.h>
#include <zmt/core/terrain/geometry/hybrid/hybriddata.h>

#include "testterrain.h"

/// A hybrid grid over a raster, with a pyramid of four triangles in chosen cells.
namespace SmallHybrid {

using Point = NBX::Vector3Base<double>;

struct Peak {
    unsigned x, y;
    double height; ///< of the point over the middle of the cell
};

inline NBX::SO<ZMT::CORE::HybridData> hybrid(const ZMT::RASTER::RasterGrid & layout,
                                             const TestTerrain::Height & height,
                                             const std::vector<Peak> & peaks) {
    const auto raster = TestTerrain::raster(layout, height);
    const auto grid = ZMT::CORE::GridData(raster.get()).vertices();
    std::vector<Point> tops;
    const NBX::SO<NBX::Array2D<std::vector<unsigned>>> cells(
        new NBX::Array2D<std::vector<unsigned>>(layout.cellsX, layout.cellsY));
    for (const Peak & peak : peaks) {
        const unsigned top = grid + unsigned(tops.size());
        tops.emplace_back(layout.minX + (peak.x + 0.5) * layout.cellSizeX, peak.height,
                          layout.minY + (peak.y + 0.5) * layout.cellSizeY);
        const unsigned low = peak.x + peak.y * layout.cellsX, high = low + layout.cellsX;
        cells->set(peak.x, peak.y,
                   {low, low + 1, top, low + 1, high + 1, top, high + 1, high, top, high, low, top});
    }
    return new ZMT::CORE::HybridData(raster.get(), tops, cells.get());
}

} // namespace SmallHybrid
