#pragma once

#include <nbx/engine/shapesimplifier.h>

namespace ZMT::CORE {

/// Hands a grid to the engine as one patch. For one thread.
class GridDataSimplifier : public NBX::ShapeSimplifier {
    NBX_CLASS(GridDataSimplifier, NBX::ShapeSimplifier)
public:
    GridDataSimplifier() = default;

    NBX::ID target() const override;
    bool simplify(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
