#pragma once

#include <nbx/math/matrix4x4base.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// A transformation of what follows in the node. Those that stand in one node, or in nodes above, add up.
class Tf : public MonoAttribute {
    NBX_STORED_CLASS(Tf, MonoAttribute)
public:
    explicit Tf(const Matrix4x4Base<double> & matrix = Matrix4x4Base<double>());

    /// From the frame of what follows to the one outside.
    const Matrix4x4Base<double> & getMatrix() const { return matrix_; }
    void setMatrix(const Matrix4x4Base<double> & matrix);

    /// The class name of `Tf`.
    ID category() const override;
    /// Attribute "matrix", default identity.
    void serialize(SerializationManager & m) override;

private:
    Matrix4x4Base<double> matrix_;
};

} // namespace NBX
