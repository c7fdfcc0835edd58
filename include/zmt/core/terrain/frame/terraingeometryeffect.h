#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace ZMT::CORE {

/// Base of what changes how the geometry of a terrain is painted; all subclasses share one stack.
class TerrainGeometryEffect : public NBX::MonoAttribute {
    NBX_CLASS(TerrainGeometryEffect, NBX::MonoAttribute)
public:
    /// The name of this class for all subclasses.
    NBX::ID category() const override;

protected:
    TerrainGeometryEffect() : NBX::MonoAttribute(true) {}
};

} // namespace ZMT::CORE
