#pragma once

#include <nbx/math/matrix4x4base.h>
#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>

namespace NBX {

/// Base of the projections: how view coordinates come to the cube from -1 to 1 that is the picture.
class Projection : public SharedObj {
    NBX_CLASS(Projection, SharedObj)
public:
    /// `aspect` is the width of the viewport through its height.
    virtual Matrix4x4Base<double> matrix(double aspect) const = 0;
    /// For a viewport of `width` by `height` pixels, both above 0. Only a projection that counts in pixels
    /// differs from that of the aspect.
    virtual Matrix4x4Base<double> matrixInViewport(unsigned width, unsigned height) const;
};

} // namespace NBX
