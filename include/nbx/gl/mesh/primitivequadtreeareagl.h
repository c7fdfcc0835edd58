#pragma once

#include <nbx/math/bounds.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// Limits the painting of primitive quadtrees to the primitives whose rectangles touch that of a box.
class PrimitiveQuadTreeAreaGL : public MonoAttribute {
    NBX_CLASS(PrimitiveQuadTreeAreaGL, MonoAttribute)
public:
    /// In the frame of the trees. Within an undefined box there is nothing.
    explicit PrimitiveQuadTreeAreaGL(const Bounds & box) : MonoAttribute(true), box_(box) {}

    const Bounds & getBox() const { return box_; }
    /// The name of this class for all subclasses.
    ID category() const override;

private:
    Bounds box_;
};

} // namespace NBX
