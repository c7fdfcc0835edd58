#pragma once

#include <zmt/core/terrain/geometry/base/geometrypatchpaintergl.h>

namespace ZMT::CORE {

/// Draws a rectangle of a grid, with normals, in double precision.
class GridPatchPainterGL : public GeometryPatchPainterGL {
    NBX_CLASS(GridPatchPainterGL, GeometryPatchPainterGL)
public:
    NBX::ID target() const override;
    void renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) override;
    unsigned displayListBytes(const GeometryPatch * patch) const override;
    void renderOuterWall(NBX::EngineGL * engine, const GeometryPatch * patch) override;
};

} // namespace ZMT::CORE
