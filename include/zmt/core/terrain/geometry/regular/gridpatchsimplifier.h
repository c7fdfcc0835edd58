#pragma once

#include <nbx/engine/shapesimplifier.h>

namespace ZMT::CORE {

/// Turns a patch into triangles, two a cell, and hands the micro-structures of a hybrid grid to the engine.
class GridPatchSimplifier : public NBX::ShapeSimplifier {
    NBX_CLASS(GridPatchSimplifier, NBX::ShapeSimplifier)
public:
    GridPatchSimplifier() = default;

    NBX::ID target() const override;
    bool simplify(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
