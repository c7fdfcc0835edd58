#pragma once

#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// How the two sides of faces are drawn, and which side is the front. Without such an attribute both are
/// filled.
class FaceStyle : public MonoAttribute {
    NBX_STORED_CLASS(FaceStyle, MonoAttribute)
public:
    enum Style { S_Points = 0, S_Lines = 1, S_Filled = 2, S_Culled = 3 };
    /// The way in which the corners of a front face turn.
    enum Order {
        O_Clockwise = 0,
        O_CounterClockwise = 1,
        O_Unchanged = 3, ///< as it is in force already
    };

    /// Numbers without a meaning are reported; filled faces and an unchanged order then take their place.
    explicit FaceStyle(int front = S_Filled, int back = S_Filled, int order = O_Unchanged);

    Style getFront() const { return front_; }
    Style getBack() const { return back_; }
    Order getOrder() const { return order_; }

    /// Attributes "front" (default 2), "back" (2), "order" (3).
    void serialize(SerializationManager & m) override;

private:
    Style front_, back_;
    Order order_;
};

} // namespace NBX
