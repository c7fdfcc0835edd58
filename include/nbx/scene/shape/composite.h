#pragma once

#include <vector>

#include <nbx/object/so.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

/// Several shapes as one, painted in their order.
class Composite : public Shape {
    NBX_STORED_CLASS(Composite, Shape)
public:
    explicit Composite(bool enabled = true) : Shape(enabled) {}

    /// A null shape is reported under "shape" with "no shape" and left out.
    void append(Shape * shape);
    /// False when the shape is no member.
    bool remove(const Shape * shape);
    void clear();

    unsigned shapes() const { return static_cast<unsigned>(shapes_.size()); }
    /// Null for a number out of range, which is reported.
    Shape * shape(unsigned i) const;

    /// The box of all enabled members.
    Bounds boundingBox() const override;
    void acceptChildren(std::vector<Visitable *> & children) const override;
    /// Attribute "shapes": the members in order.
    void serialize(SerializationManager & m) override;

private:
    std::vector<SO<Shape>> shapes_;
};

} // namespace NBX
