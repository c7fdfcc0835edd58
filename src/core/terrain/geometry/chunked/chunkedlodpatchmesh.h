#pragma once

#include <zmt/core/terrain/geometry/base/stripmesh.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

namespace ZMT::CORE {

/// What is drawn of a patch of a `ChunkedLodTerrain`: the surface with skirts along inner sides, and walls
/// along the outer edge of the raster, as strips over common vertices, those of the skirts and walls last.
struct ChunkedLodPatchMesh : StripMesh {
    /// Of one strip: its numbers have 16 bits.
    static constexpr std::size_t s_maxEntries = 65534;

    /// In scene coordinates, at the patch's threshold.
    explicit ChunkedLodPatchMesh(const ChunkedLodTerrain::Patch & patch);
    /// The surface alone, in geo coordinates less `zero`.
    static StripMesh surfaceOf(const ChunkedLodTerrain::Patch & patch, const Point & zero);

    std::size_t surfaceVertices = 0, surfaceTriangles = 0; ///< without skirts
    Strips outerWall;                                      ///< without an outer side it is empty
};

} // namespace ZMT::CORE
