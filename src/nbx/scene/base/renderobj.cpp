#include <nbx/scene/base/renderobj.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_CLASS_IMPL(RenderObj, SharedObj)

void RenderObj::setEnableState(bool enabled) {
    if (enabled_ == enabled) return;
    enabled_ = enabled;
    modified();
}

bool RenderObj::isEnabled() const {
    return enabled_;
}

void RenderObj::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<SharedObj>(m, this);
    attributeWithDefault(m, "enabled", enabled_, true);
}

} // namespace NBX
