#pragma once

#include <nbx/math/area.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// The part of the canvas that is drawn on, in pixels from the lower left corner. It may reach beyond the
/// canvas, whose picture is then the part inside.
class Viewport : public MonoAttribute {
    NBX_CLASS(Viewport, MonoAttribute)
public:
    explicit Viewport(const Area & area) : MonoAttribute(true), area_(area) {}

    const Area & getArea() const { return area_; }
    void setArea(const Area & area);

private:
    Area area_;
};

} // namespace NBX
