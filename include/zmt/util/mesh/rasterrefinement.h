#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include <zmt/raster/simplerasterdata.h>

namespace NBX {
class Progress;
}

namespace ZMT::UTIL {

/// Triangles over the vertices of a raster.
struct RasterSurface {
    static constexpr std::uint32_t s_none = 0xFFFFFFFFu;

    struct Vertex {
        std::uint32_t column, row;
    };

    std::vector<Vertex> vertices;
    /// Numbers of vertices, counter-clockwise with columns to the right and rows upwards.
    std::vector<std::array<std::uint32_t, 3>> triangles;
    /// The triangle across the edge from corner `k` to the next one, or `s_none` at the border.
    std::vector<std::array<std::uint32_t, 3>> neighbours;
};

/// Greedy refinement of a whole raster: of all its vertices, the one that is farthest from the surface in
/// height becomes a corner of it, again and again. The surface is a Delaunay triangulation; where it would
/// cover vertices without a height, or leave out some that have one, its outline is refined first.
///
/// Nothing is kept for the vertices that are no corners: each face is scanned for its worst one. Memory is
/// about 200 bytes for each corner beside the heights.
///
/// Laws: (1) no vertex with a height is farther from the surface than `error()`; but vertices of which no
/// cell of the raster has three heights count for nothing; (2) the same heights and goals in the same order
/// give the same surface; of equal errors that of the first vertex, row by row, is taken; (3) no triangle
/// covers a vertex without a height, once `error()` is finite.
///
/// Source: M. Garland, P. Heckbert: Fast Polygonal Approximation of Terrains and Height Fields, 1995. For one
/// thread.
class RasterRefinement {
public:
    using Heights = RASTER::SimpleRasterData<float>;

    /// What ends the refinement, whichever comes first.
    struct Goal {
        double error = 0.0; ///< largest vertical distance that may be left
        std::uint64_t triangles = std::numeric_limits<std::uint64_t>::max();
    };

    /// The two triangles of the corners. `heights` are borrowed, at least 2 by 2 and with fewer than 2^32
    /// vertices, else `std::length_error` is thrown. `cellRatio` is the height of a cell in the plan over its
    /// width, by which triangles are as little acute as can be; from 1/1000 to 1000.
    explicit RasterRefinement(const Heights & heights, double cellRatio = 1.0);
    ~RasterRefinement();
    RasterRefinement(const RasterRefinement &) = delete;
    RasterRefinement & operator=(const RasterRefinement &) = delete;

    /// Makes a vertex a corner, whatever its error. One that is a corner already stays one.
    void insert(unsigned column, unsigned row);

    /// Refines on. False when `progress` was cancelled, whose value goes to `progressEnd` from where it is.
    bool refine(const Goal & goal, NBX::Progress * progress = nullptr, double progressEnd = 1.0);

    /// The largest vertical distance of a vertex from the surface; infinite where the outline is not
    /// complete. Errors below 2^-42 of the largest height are rounding, and count as none. O(triangles).
    double error() const;
    /// Triangles of the surface. A corner more makes it at most as many more as the corner has neighbours.
    std::uint64_t triangles() const;
    /// The surface as it is.
    RasterSurface surface() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace ZMT::UTIL
