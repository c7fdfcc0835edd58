#pragma once

#include <nbx/analysis/attributecontext.h>
#include <nbx/math/matrix4x4base.h>

namespace NBX {

/// An object that was found in a scene, with what holds for it at its place. Immutable.
class FoundObject : public SharedObj {
    NBX_CLASS(FoundObject, SharedObj)
public:
    FoundObject(SO<RenderObj> object, SO<const AttributeContext> context,
                const Matrix4x4Base<double> & matrix);
    ~FoundObject() override;

    const SO<RenderObj> & object() const { return object_; }
    /// Never null.
    const SO<const AttributeContext> & context() const { return context_; }
    /// From the frame of the object to the one in which the scene stands.
    const Matrix4x4Base<double> & matrix() const { return matrix_; }

private:
    SO<RenderObj> object_;
    SO<const AttributeContext> context_;
    Matrix4x4Base<double> matrix_;
};

} // namespace NBX
