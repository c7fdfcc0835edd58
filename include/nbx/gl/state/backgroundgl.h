#pragma once

#include <nbx/math/color.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// A fresh background where the engine reaches it in a node: the whole of what is drawn on, canvas or frame
/// buffer object, gets its colour, the farthest depth and stencil 0, whatever is masked or cut off. It
/// changes nothing when it is left.
class BackgroundGL : public MonoAttribute {
    NBX_STORED_CLASS(BackgroundGL, MonoAttribute)
public:
    /// At first transparent black. Targets with floats take components of any size, such as heights.
    explicit BackgroundGL(const Color & color = Color(0.0F, 0.0F, 0.0F, 0.0F));

    const Color & getColor() const { return color_; }
    void setColor(const Color & color);

    /// Attributes "color" and "color_alpha", with transparent black as their default.
    void serialize(SerializationManager & m) override;

private:
    Color color_;
};

} // namespace NBX
