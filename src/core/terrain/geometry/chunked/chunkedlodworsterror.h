#pragma once

#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

namespace ZMT::CORE {

/// How much farther a mesh of a `ChunkedLodTerrain` may lie from the heights than its threshold says.
///
/// The error of a vertex is its distance from the middle of the edge that replaces it, whose ends may be
/// replaced as well; at the far borders the strips are cut off, and triangles shrink with their heights.
class ChunkedLodWorstError {
public:
    /// The largest ratio of a vertex's distance from the surface to the threshold of the patch, at least 1,
    /// over all patches below a root with `rootThreshold`. In steps of the lattice. Exact for up to about 200
    /// x 200 vertices; in larger terrains only samples of the patches are looked at, and the result is a
    /// quarter larger than the ratio found. Takes at most a tenth of the time for making a terrain of 4097 x
    /// 4097 vertices.
    static double ratio(const ChunkedLodTerrain::Impl & lattice, unsigned short rootThreshold);
};

} // namespace ZMT::CORE
