#pragma once

#include <zmt/util/mesh/rasterrefinement.h>
#include <zmt/util/mesh/surfacemesh.h>

namespace ZMT::UTIL {

/// Closes a surface with walls along its borders and an underside.
///
/// Laws, for a surface with triangles: (1) each edge, told by the positions of its ends, has exactly two
/// triangles, which run along it in opposite directions; (2) the volume is positive.
class MeshSolid {
public:
    /// `mesh` is `surface`, vertex by vertex and triangle by triangle; `base` is the height of the underside
    /// in the mesh's own coordinates, below all positions. Where parts of the surface touch in one vertex
    /// alone, whose wall would have four triangles along one edge, it is parted by up to 1/64 of `cell`, the
    /// size of a cell.
    static void close(SurfaceMesh & mesh, const RasterSurface & surface, float base, double cell);
};

} // namespace ZMT::UTIL
