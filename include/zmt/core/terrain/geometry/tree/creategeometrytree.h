#pragma once

#include <nbx/object/so.h>

namespace ZMT::CORE {

class GeometryData;
class GeometryPatch;

/// Builds the level-of-detail tree of a grid, bottom-up: full-resolution `GridPatch`es at the leaves, and
/// above them `TinPatch`es, found by greedy refinement over the vertices that their children kept.
///
/// Laws: (1) a leaf's error is 0, that of any other patch is at least 1e-6; (2) no vertex of the grid in the
/// area of a patch, and no vertex of its micro-structures, lies farther from its surface than its error; (3)
/// equal seeds of `rand()` give equal trees.
class CreateGeometryTree {
public:
    /// The root of the tree over `data`, which must be a `GridData`; null, reported, without one.
    /// `maxVertices` limits the vertices of a leaf. Any other patch is refined up to as many triangles, and
    /// on while insertions raise its error. Below 50 it is reported, and counts as 50; it must not be above
    /// 32000, so that 16 bits number the vertices with their skirts, which is not checked. Null when the
    /// progress display cancelled.
    ///
    /// `threads` above 1 builds on as many threads beside the calling one, which alone shows the progress;
    /// the tree is the same, byte for byte. Reports and exceptions reach the calling thread in the order in
    /// which one thread meets them.
    ///
    /// Only one construction may run in the process. Writes the statistics of the raster to the standard
    /// error stream.
    static NBX::SO<GeometryPatch> create(GeometryData * data, unsigned maxVertices, unsigned threads = 1);
};

} // namespace ZMT::CORE
