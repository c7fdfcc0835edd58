#pragma once

#include <nbx/math/vector3base.h>
#include <zmt/core/terrain/geometry/base/geometrypatchpaintergl.h>

namespace ZMT::CORE {

/// Draws a rectangle of a grid with its normals as colours: each component, from -1 to 1, as 0 to 1. Takes
/// the place of `GridPatchPainterGL` where it is registered; has neither skirts nor walls.
class GridPatchNormalPainterGL : public GeometryPatchPainterGL {
    NBX_CLASS(GridPatchNormalPainterGL, GeometryPatchPainterGL)
public:
    /// Normals are multiplied with `scale`, component by component.
    explicit GridPatchNormalPainterGL(const NBX::Vector3Base<double> & scale) : scale_(scale) {}

    NBX::ID target() const override;
    void renderPatch(NBX::EngineGL * engine, const GeometryPatch * patch) override;
    void renderOuterWall(NBX::EngineGL * engine, const GeometryPatch * patch) override;

private:
    NBX::Vector3Base<double> scale_;
};

} // namespace ZMT::CORE
