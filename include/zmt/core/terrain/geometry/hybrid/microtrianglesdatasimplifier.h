#pragma once

#include <nbx/engine/shapesimplifier.h>

namespace ZMT::CORE {

/// Turns the micro-structure of a cell into triangles. They look up their corners in the hybrid grid, which
/// they keep.
class MicroTrianglesDataSimplifier : public NBX::ShapeSimplifier {
    NBX_CLASS(MicroTrianglesDataSimplifier, NBX::ShapeSimplifier)
public:
    MicroTrianglesDataSimplifier() = default;

    NBX::ID target() const override;
    bool isSimple() const override { return true; }
    bool simplify(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
