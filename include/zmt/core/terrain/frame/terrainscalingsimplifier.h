#pragma once

#include <nbx/engine/attributesimplifier.h>

namespace ZMT::CORE {

/// Brings a `TerrainScaling` into effect as a plain transformation, for painting as for all other techniques.
class TerrainScalingSimplifier : public NBX::AttributeSimplifier {
    NBX_CLASS(TerrainScalingSimplifier, NBX::AttributeSimplifier)
public:
    TerrainScalingSimplifier() = default;

    NBX::ID target() const override;
    bool isSimple() const override { return true; }
    bool simplify(NBX::Engine * engine, const NBX::Attribute * attribute, bool entering) override;
};

} // namespace ZMT::CORE
