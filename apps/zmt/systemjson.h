#pragma once

#include <nlohmann/json_fwd.hpp>

#include <zmt/raster/georeference.h>

/// Adds what the map coordinates of an object mean: "crs", a short name such as "EPSG:32645", otherwise WKT,
/// which the option --crs takes; and "crs_name", for people. Both are null where there is no system.
void describeSystem(nlohmann::ordered_json & object, const ZMT::RASTER::GeoReference & reference);
