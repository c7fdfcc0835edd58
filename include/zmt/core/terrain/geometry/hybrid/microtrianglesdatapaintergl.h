#pragma once

#include <nbx/engine/shapepainter.h>

namespace ZMT::CORE {

/// Draws the triangles of a cell of a hybrid grid, each facing up. Corners on the grid have its normals, so
/// that the cell joins the smooth shading around it; other corners have the normal of their triangle.
class MicroTrianglesDataPainterGL : public NBX::ShapePainter {
    NBX_CLASS(MicroTrianglesDataPainterGL, NBX::ShapePainter)
public:
    NBX::ID target() const override;
    bool render(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
