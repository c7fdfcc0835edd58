#pragma once

#include <nbx/gl/mesh/primitivequadtreeareagl.h>
#include <nbx/gl/mesh/primitivequadtreegl.h>
#include <nbx/scene/shape/shape.h>

namespace ZMT::CORE {

/// The part of a tree of triangles over one patch of a terrain: what the painter of the terrain hands to the
/// engine. `TerrainTexturedTrianglesShapeSimplifier` draws it.
class TerrainTexturedTrianglesShape : public NBX::Shape {
    NBX_CLASS(TerrainTexturedTrianglesShape, NBX::Shape)
public:
    /// `area` limits the painting of `tree` to what touches `box`. None of them is null.
    TerrainTexturedTrianglesShape(const NBX::SO<NBX::PrimitiveQuadTreeGL> & tree,
                                  const NBX::SO<NBX::PrimitiveQuadTreeAreaGL> & area, const NBX::Bounds & box)
        : NBX::Shape(true), tree_(tree), area_(area), box_(box) {}

    NBX::PrimitiveQuadTreeGL * tree() const { return tree_.get(); }
    NBX::PrimitiveQuadTreeAreaGL * area() const { return area_.get(); }
    NBX::Bounds boundingBox() const override { return box_; }

private:
    NBX::SO<NBX::PrimitiveQuadTreeGL> tree_;
    NBX::SO<NBX::PrimitiveQuadTreeAreaGL> area_;
    NBX::Bounds box_;
};

} // namespace ZMT::CORE
