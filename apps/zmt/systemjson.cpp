#include "systemjson.h"

#include <nlohmann/json.hpp>

#include <zmt/raster/gdal/coordinatesystem.h>

void describeSystem(nlohmann::ordered_json & object, const ZMT::RASTER::GeoReference & reference) {
    const std::string code = ZMT::RASTER::CoordinateSystem::code(reference.wkt);
    const auto orNull = [](const std::string & text) {
        return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
    };
    object["crs"] = orNull(code.empty() ? reference.wkt : code);
    object["crs_name"] = orNull(reference.name);
}
