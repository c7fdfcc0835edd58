#pragma once

#include <nbx/engine/shapesimplifier.h>

namespace ZMT::CORE {

/// Hands a terrain's data at full resolution to the engine, in scene coordinates, and the triangles that are
/// draped on it. The tree of levels of detail plays no part.
class TerrainSimplifier : public NBX::ShapeSimplifier {
    NBX_CLASS(TerrainSimplifier, NBX::ShapeSimplifier)
public:
    TerrainSimplifier() = default;

    NBX::ID target() const override;
    bool simplify(NBX::Engine * engine, const NBX::Shape * shape) override;
};

} // namespace ZMT::CORE
