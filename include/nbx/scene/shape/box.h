#pragma once

#include <nbx/scene/shape/shape.h>

namespace NBX {

/// An axis-aligned solid box.
class Box : public Shape {
    NBX_STORED_CLASS(Box, Shape)
public:
    /// The unit cube about the origin.
    Box();
    explicit Box(const Bounds & bounds);
    /// Between two corners, in any order.
    Box(const Vector3Base<double> & a, const Vector3Base<double> & b);

    const Bounds & getBounds() const { return bounds_; }
    void setBounds(const Bounds & bounds);

    Bounds boundingBox() const override { return bounds_; }
    /// Attribute "bounds".
    void serialize(SerializationManager & m) override;

private:
    Bounds bounds_;
};

} // namespace NBX
