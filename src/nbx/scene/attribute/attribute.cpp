#include <nbx/scene/attribute/attribute.h>

namespace NBX {

NBX_CLASS_IMPL(Attribute, RenderObj)

ID Attribute::category() const {
    return classInfoNBX()->name();
}

bool Attribute::isPassEffect() const {
    return false;
}

} // namespace NBX
