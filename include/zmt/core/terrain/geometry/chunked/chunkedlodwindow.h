#pragma once

#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

namespace ZMT::CORE {

/// The square window of the lattice that a patch of a `ChunkedLodTerrain` shows, with the threshold at which
/// its mesh is drawn. Knows which windows a terrain has, and how coarse each is.
///
/// Laws: (1) the strip of a window's mesh has at most `ChunkedLodPatchMesh::s_maxEntries` entries; (2) no
/// child has a larger threshold than its parent; (3) a window without children shows every vertex.
struct ChunkedLodWindow {
    /// Lattice position of the first corner, and edge length in vertices: `2^k + 1`.
    unsigned x, y, size;
    /// In steps of the height scale.
    unsigned short threshold;

    /// At `threshold`, or at the first larger one, up to `coarsest`, whose strip is short enough; and at 0
    /// where no window is finer. Takes the time of making the strip, for large windows only.
    static ChunkedLodWindow drawn(const ChunkedLodTerrain::Impl & lattice, unsigned x, unsigned y,
                                  unsigned size, unsigned short threshold, unsigned short coarsest = 65535);

    /// Quarters that lie outside the raster do not exist.
    unsigned children(const ChunkedLodTerrain::Impl & lattice) const;
    /// `i < children()`. The threshold is half as large, if the strip permits it.
    ChunkedLodWindow child(const ChunkedLodTerrain::Impl & lattice, unsigned i) const;
};

} // namespace ZMT::CORE
