#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace ZMT::UTIL {

/// The vertices of a raster that lie in a face of its refinement: finds the one that is farthest from the
/// face in height. A face is scanned row by row, by whole numbers alone for its borders and a plane that goes
/// along, so that no vertex needs to be located or remembered. The corners themselves are left out, vertices
/// on the edges are not.
///
/// Laws: (1) the result is that of looking at all vertices one by one, row by row, with a strictly larger
/// error replacing what was found before; (2) it is the same on every processor.
class FaceScan {
public:
    /// A vertex of the raster.
    struct Corner {
        std::int32_t column, row;
        double height; ///< NaN where there is none
    };

    /// Corners counter-clockwise, with columns to the right and rows upwards, and not on one line.
    struct Face {
        Corner corners[3];
        /// Of the edge from corner `k` to the next one: whether the surface goes on behind it. Read where a
        /// corner has no height.
        bool goesOn[3];
    };

    /// What is wrong with a face. Where no vertex is, `error` is 0.
    struct Worst {
        static constexpr double s_outline = std::numeric_limits<double>::infinity();

        double error = 0.0;     ///< in height; `s_outline` where the face covers what it may not
        std::uint32_t cell = 0; ///< number of the vertex, row by row over the raster
    };

    /// `heights` are borrowed, row by row, NaN where there are none. Errors that are not above `noise` count
    /// as none.
    FaceScan(const float * heights, std::uint32_t columns, bool hasVoids, double noise)
        : heights_(heights), columns_(columns), hasVoids_(hasVoids), noise_(noise) {}

    /// Of a face with three heights, which is a part of the surface: the vertex that is farthest from it; but
    /// where it covers vertices without a height, the one of these that is deepest inside. Of another face,
    /// which is a hole: the deepest vertex that has a height and does not lie on the surface beside it.
    Worst worst(const Face & face) const;

    /// Whether all three corners have a height.
    static bool isSurface(const Face & face);

private:
    Worst deepest(const Face & face, bool isHole) const;
    bool hasVoid(const Face & face) const;

    const float * heights_;
    std::uint32_t columns_;
    bool hasVoids_;
    double noise_;
};

} // namespace ZMT::UTIL
