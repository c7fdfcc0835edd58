#pragma once

#include <vector>

#include <nbx/engine/engine.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

/// A polygon or line set that a simplifier made, and what it was handed to the engine with.
struct SimpleShape {
    SO<Shape> shape;
    Matrix4x4Base<double> matrix;              ///< to the frame of the engine's scene
    std::vector<SO<MonoAttribute>> attributes; ///< pushed by simplifiers, in the order of pushing
};

/// What the simplifiers make of a shape under the state of the engine, in their order; nothing where there is
/// no simplifier. Polygon and line sets stay as they are.
std::vector<SimpleShape> simpleShapes(Engine & engine, Shape * shape);

} // namespace NBX
