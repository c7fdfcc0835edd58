#pragma once

#include <nbx/image/image.h>
#include <nbx/object/so.h>
#include <zmt/raster/tiledgeoimagepyramid.h>
#include <zmt/util/mesh/surfacemesh.h>

namespace ZMT::UTIL {

/// Lays images on meshes from straight above. Walls have the colours of their upper edge.
class MeshImage {
public:
    static constexpr unsigned s_mostTexels = 4096; ///< a side

    /// The part of an image under the mesh, coarser where it has more than `s_mostTexels` a side, and the
    /// texture coordinates for it. With `isPlaced` the image lies at its map coordinates, which are of the
    /// mesh's system; otherwise it covers the whole mesh. Null where there is no image at the mesh.
    static NBX::SO<NBX::Image> lay(SurfaceMesh & mesh, const RASTER::TiledGeoImagePyramid & image,
                                   bool isPlaced);
};

} // namespace ZMT::UTIL
