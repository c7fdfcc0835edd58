#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include <zmt/util/mesh/rasterrefinement.h>
#include <zmt/util/mesh/surfacemesh.h>

#include "rasterplan.h"

namespace NBX {
class Progress;
}

namespace ZMT::UTIL {

/// How far the heights of a raster are from triangles as they are stored, upright. Each vertex of the raster
/// is put to the triangle of the mesh that it lies in, which roundings and the bends of a projection may make
/// another one than that of the refinement. What lies beyond the border, where this is straighter than the
/// map, counts by the plane of the triangle there.
class MeshDeviation {
public:
    struct Result {
        double error = 0.0; ///< in the raster's unit
        /// The worst vertex of each triangle of the refinement in which one is farther than allowed.
        std::vector<RasterSurface::Vertex> worst;
        bool isCancelled = false;
    };

    /// The vertices of `surface` are the first positions of `mesh`. All are borrowed.
    MeshDeviation(const RASTER::SimpleRasterData<float> & heights, const RasterPlan & plan,
                  const RasterSurface & surface, const SurfaceMesh & mesh)
        : heights_(heights), plan_(plan), surface_(surface), mesh_(mesh) {}

    /// The same for any number of threads. `allowed` is what a vertex may be away.
    Result measure(double allowed, unsigned threads, NBX::Progress * progress) const;

private:
    struct Worst {
        double error = 0.0;
        RasterSurface::Vertex vertex{};
    };

    Worst worstOf(std::uint32_t triangle) const;
    double distance(std::uint32_t triangle, double x, double y, double height) const;

    const RASTER::SimpleRasterData<float> & heights_;
    const RasterPlan & plan_;
    const RasterSurface & surface_;
    const SurfaceMesh & mesh_;
};

} // namespace ZMT::UTIL
