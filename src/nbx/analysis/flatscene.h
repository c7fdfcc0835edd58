#pragma once

#include <vector>

#include <nbx/analysis/attributecontext.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

/// A shape in the frame of the scene, with all that is in force for it.
struct FlatShape {
    SO<Shape> shape;
    SO<const AttributeContext> context;
    Matrix4x4Base<double> matrix; ///< the identity, unless the shape knows no vertices
};

/// The enabled shapes of a scene in the order of drawing, transformed; composites are taken apart.
std::vector<FlatShape> flatShapes(const SceneThing & scene);

/// Appends a node with the attributes and the shape; the shape alone where there are no attributes.
void appendFlat(SceneThing & scene, const FlatShape & flat);

} // namespace NBX
