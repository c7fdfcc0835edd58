#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include <nbx/math/ray.h>

#include "nbx/container/space/boxhierarchy.h"

namespace NBX {

/// Triangles in boxes within boxes, for rays. Immutable.
///
/// Law: `nearest` gives what testing all triangles in the order of their numbers gives.
class TriangleHierarchy {
public:
    using Corners = std::array<Vector3Base<float>, 3>;
    /// More bytes are never taken for a triangle, but for a block and a node that are there anyway. Most take
    /// a fifth of it.
    static constexpr std::size_t s_mostBytesPerTriangle = 384;

    /// Triangles with a corner that is not finite are never hit.
    explicit TriangleHierarchy(const std::vector<Corners> & triangles);

    struct Hit {
        double distance;   ///< parameter along the direction of the ray
        unsigned triangle; ///< its number
        Corners corners;
    };
    /// The nearest hit at a parameter of `limit` or less; of equally near ones that of the lowest number.
    /// Which triangles are hit, `meetsTriangle` says. `boxRay` is that of `ray`.
    std::optional<Hit> nearest(const Ray & ray, const BoxRay & boxRay, double limit) const;
    std::optional<Hit> nearest(const Ray & ray, double limit) const {
        return nearest(ray, BoxRay(ray), limit);
    }

    /// Asks memory for what `nearest` begins with.
    void fetchAhead() const { boxes_.fetchAhead(); }

    std::size_t bytes() const { return boxes_.bytes() + blocks_.capacity() * sizeof(Block); }

private:
    static constexpr unsigned s_blockSize = 4;
    /// Up to four triangles, by corner and axis; a lane without one has a triangle without area.
    struct Block {
        std::array<std::array<std::array<float, s_blockSize>, 3>, 3> corners;
        std::array<std::uint32_t, s_blockSize> numbers;

        Corners triangle(unsigned lane) const;
    };
    class Search;

    std::vector<Block> blocks_; ///< by leaf
    BoxHierarchy boxes_;
};

} // namespace NBX
