#pragma once

#include <nbx/object/so.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>

namespace ZMT::CORE {

/// How near the ground comes that is seen.
class NearestGround {
public:
    /// So many patches are opened at most.
    static constexpr unsigned mostOpened = 64;

    /// No part of the terrain with the topmost patch `top` that is seen lies nearer to the eye than this, in
    /// the frame of the view; mostly little farther, since boxes of patches are compared. Nothing is read for
    /// it. 0 where nothing is seen.
    static double distance(const NBX::SO<const GeometryPatch> & top, const NBX::ViewInfo & view);
};

} // namespace ZMT::CORE
