#include <nbx/scene/attribute/disableshading.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(DisableShading, MonoAttribute)

ID DisableShading::category() const {
    return ClassNameNBX();
}

void DisableShading::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
}

} // namespace NBX
