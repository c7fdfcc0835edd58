#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>

namespace ZMT::CORE {

/// Cuts the mesh of a patch out of the error field: the vertices of a square window of the lattice whose
/// error is at least a threshold, and the window's corners and centre.
///
/// Laws: (1) the triangles cover the window once, without cracks; (2) the vertices along a side are those of
/// `buildBoundary`. Windows are `size = 2^k + 1` lattice vertices wide, `k >= 1`, and begin at a multiple of
/// `2^k`. Vertices are given by their number in the store of heights.
class ChunkedLodMesh {
public:
    enum Side {
        S_LowX = 0,  ///< from (x, y) to (x, y + size - 1)
        S_HighY = 1, ///< on to (x + size - 1, y + size - 1)
        S_HighX = 2, ///< on to (x + size - 1, y)
        S_LowY = 3,  ///< back to (x, y)
    };

    /// One triangle strip into `out`; its triangles of three different vertices turn clockwise as seen from
    /// above. False, with a part of the strip, where that has more than `limit` entries.
    static bool buildMesh(const ChunkedLodTerrain::Impl & lattice, unsigned x, unsigned y, unsigned size,
                          unsigned short threshold, std::vector<unsigned> & out,
                          std::size_t limit = SIZE_MAX);

    /// The vertices that the mesh has along a side, in walking order, with both corners.
    static void buildBoundary(const ChunkedLodTerrain::Impl & lattice, unsigned x, unsigned y, unsigned size,
                              unsigned short threshold, std::vector<unsigned> & out, unsigned side);

    /// The lowest and the highest height of the mesh, in steps.
    static std::pair<unsigned short, unsigned short> heightRange(const ChunkedLodTerrain::Impl & lattice,
                                                                 unsigned x, unsigned y, unsigned size,
                                                                 unsigned short threshold);
};

} // namespace ZMT::CORE
