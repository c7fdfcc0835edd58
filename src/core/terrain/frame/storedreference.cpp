#include "storedreference.h"

#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>

namespace ZMT::CORE {

void serializeText(NBX::SerializationManager & m, const char * name, std::string & text) {
    std::wstring stored = NBX::StringUtils::Utf8String2WString(text);
    m.attribute(name, stored);
    text = NBX::StringUtils::WString2Utf8String(stored);
}

void serializeReference(NBX::SerializationManager & m, RASTER::GeoReference & reference) {
    serializeText(m, "system", reference.wkt);
    serializeText(m, "systemName", reference.name);
    serializeText(m, "unitName", reference.unitName);
    m.attribute("unit", reference.unit);
    m.attribute("isGeoreferenced", reference.isGeoreferenced);
}

} // namespace ZMT::CORE
