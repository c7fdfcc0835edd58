#pragma once

#include <nbx/engine/shapepainter.h>
#include <nbx/math/vector3base.h>

namespace ZMT::CORE {

/// Draws the triangles of a cell of a hybrid grid with their normals as colours, as
/// `GridPatchNormalPainterGL` does for the cells around. Takes the place of `MicroTrianglesDataPainterGL`
/// where it is registered.
class MicroTrianglesDataNormalPainterGL : public NBX::ShapePainter {
    NBX_CLASS(MicroTrianglesDataNormalPainterGL, NBX::ShapePainter)
public:
    /// Normals are multiplied with `scale`, component by component.
    explicit MicroTrianglesDataNormalPainterGL(const NBX::Vector3Base<double> & scale) : scale_(scale) {}

    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;

private:
    NBX::Vector3Base<double> scale_;
};

} // namespace ZMT::CORE
