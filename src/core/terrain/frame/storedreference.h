#pragma once

#include <string>

#include <zmt/raster/georeference.h>

namespace NBX {
class SerializationManager;
}

namespace ZMT::CORE {

/// A text in UTF-8.
void serializeText(NBX::SerializationManager & m, const char * name, std::string & text);

/// The system of coordinates that are no angles: attributes "system", "systemName", "unitName", "unit" and
/// "isGeoreferenced".
void serializeReference(NBX::SerializationManager & m, RASTER::GeoReference & reference);

} // namespace ZMT::CORE
