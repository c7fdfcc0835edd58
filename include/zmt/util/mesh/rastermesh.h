#pragma once

#include <optional>

#include <zmt/raster/georaster.h>
#include <zmt/util/mesh/rasterrefinement.h>
#include <zmt/util/mesh/surfacemesh.h>

namespace NBX {
class Progress;
}

namespace ZMT::UTIL {

/// Makes one mesh of a whole raster by greedy refinement. Vertices without heights are holes.
class RasterMesh {
public:
    struct Options {
        RasterRefinement::Goal goal; ///< of the surface alone
        /// The height of an underside, below all heights: with walls along the border and around holes the
        /// mesh is closed, and each of its edges has two faces.
        std::optional<double> base;
        /// From west to east; without it lengths are those of the map.
        std::optional<double> width;
        unsigned threads = 1; ///< that measure; they change nothing of the result
    };

    /// A raster in degrees is refined on its own cells, and its vertices are projected to metres, with so
    /// many of them that edges follow the projection within half a cell. The error is measured on the
    /// triangles as they are, with all roundings, and the refinement goes on where it is above the goal.
    ///
    /// The mesh has no triangles where no three heights make one, and its error is infinite where the goal's
    /// triangles are too few for the outline of the heights. Empty when `progress` was cancelled. Throws
    /// `NBX::InputException` where the raster cannot be projected, and `std::length_error` as
    /// `RasterRefinement` does.
    static std::optional<SurfaceMesh> create(const RASTER::GeoRaster & raster, const Options & options,
                                             NBX::Progress * progress = nullptr);
};

} // namespace ZMT::UTIL
