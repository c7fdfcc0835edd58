#pragma once

#include <nbx/math/color.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// The colour of unlit shapes that have none of their own; white without such an attribute.
class ColorAttribute : public MonoAttribute {
    NBX_STORED_CLASS(ColorAttribute, MonoAttribute)
public:
    explicit ColorAttribute(const Color & color = Color::white) : MonoAttribute(true), color_(color) {}

    const Color & getColor() const { return color_; }
    void setColor(const Color & color);

    /// Attributes "color" and "color_alpha".
    void serialize(SerializationManager & m) override;

private:
    Color color_;
};

} // namespace NBX
