#include <zmt/core/misc/usedisplaylistgl.h>

#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

void UseDisplayListGL::setActive(bool active) {
    if (active_ == active) return;
    active_ = active;
    modified();
}

void UseDisplayListGL::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::MonoAttribute>(m, this);
    NBX::attributeWithDefault(m, "active", active_, true);
}

NBX_STORED_CLASS_IMPL(UseDisplayListGL, NBX::MonoAttribute)

} // namespace ZMT::CORE
