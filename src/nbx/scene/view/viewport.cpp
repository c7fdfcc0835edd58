#include <nbx/scene/view/viewport.h>

namespace NBX {

NBX_CLASS_IMPL(Viewport, MonoAttribute)

void Viewport::setArea(const Area & area) {
    if (area_ == area) return;
    area_ = area;
    modified();
}

} // namespace NBX
