#pragma once

#include <vector>

#include <nbx/object/so.h>

namespace ZMT::CORE {
class GeometryPatch;
class GridPatch;
} // namespace ZMT::CORE

namespace ZMT::UTIL {

/// The finest level of a tree of patches in few large ones, for what draws all of it again and again: leaves
/// of a few cells each would take longer to find than to draw.
class FinestPatches {
public:
    /// Cells along the longer side of a patch that is put together.
    static constexpr unsigned s_longestSide = 128;

    /// New patches without children, each in the place of all leaves below one node of the tree, which are
    /// rectangles of one grid. None where a leaf is of another kind, or would first have to be read.
    static std::vector<NBX::SO<CORE::GridPatch>> of(const NBX::SO<CORE::GeometryPatch> & root);
};

} // namespace ZMT::UTIL
