#pragma once

#include <optional>

#include <nbx/math/bounds.h>
#include <nbx/math/vector3base.h>

namespace ZMT::CORE {
class GridData;
}

namespace ZMT::UTIL {

/// Finds the place of a terrain that a view from nearby should show.
class Summit {
public:
    /// The grid is looked at in this many blocks a direction.
    static constexpr unsigned s_blocks = 48;

    /// The highest vertex of the block in and around which fewest heights are undefined, so that it does not
    /// lie at the edge of the data; of several such blocks the highest counts. The outermost blocks are no
    /// candidates, and neither are those whose highest vertex lies outside of `plan`, whose y is not read;
    /// an undefined one leaves all. Both in local coordinates of `grid`. Empty where there is no candidate.
    /// Looks at every vertex once.
    static std::optional<NBX::Vector3Base<double>> find(const CORE::GridData & grid,
                                                        const NBX::Bounds & plan = {});
};

} // namespace ZMT::UTIL
