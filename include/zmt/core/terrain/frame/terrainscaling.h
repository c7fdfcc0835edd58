#pragma once

#include <nbx/math/vector3base.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace ZMT::CORE {

/// Exaggerates the terrains behind it: scales them about the origin of the frame in which it stands, when
/// they are painted or intersected. Their data, height queries among them, stay as they are. Nested ones
/// multiply. Normals become those of the exaggerated surface; but the direction of a light behind it is
/// scaled too, so that a sun belongs in front.
class TerrainScaling : public NBX::MonoAttribute {
    NBX_CLASS(TerrainScaling, NBX::MonoAttribute)
public:
    /// Factors along x, height and z of that frame.
    explicit TerrainScaling(const NBX::Vector3Base<double> & scaling)
        : NBX::MonoAttribute(true), scaling_(scaling) {}

    const NBX::Vector3Base<double> & getScaling() const { return scaling_; }
    void setScaling(const NBX::Vector3Base<double> & scaling);

    /// The name of this class for all subclasses.
    NBX::ID category() const override;

private:
    NBX::Vector3Base<double> scaling_;
};

} // namespace ZMT::CORE
