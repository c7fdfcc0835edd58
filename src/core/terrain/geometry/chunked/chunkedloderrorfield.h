#pragma once

namespace ZMT::CORE {

/// The errors of the vertices of a square lattice of heights: how much the surface changes when the vertex,
/// and every finer one that depends on it, is left out of a hierarchy of right triangles.
///
/// Laws: (1) a vertex has at least the error of each vertex that needs it, so that the vertices with at
/// least some error are a closed mesh; (2) the corners and the centre have the largest error, 65535.
class ChunkedLodErrorField {
public:
    /// Fills `errors`, `size * size` values row by row with `size = 2^level + 1`, `level >= 1`, from
    /// `sizeX * sizeY` heights, both sizes at least 1 and at most `size`; the last column and row of heights
    /// go on to the edge of the lattice. Heights are at most 65534. O(size * size).
    static void compute(const unsigned short * heights, unsigned sizeX, unsigned sizeY, unsigned level,
                        unsigned short * errors);
};

} // namespace ZMT::CORE
