#pragma once

#include <string>

#include <ogr_spatialref.h>

/// The WKT of a system, by the projection library alone.
inline std::string wktOf(const std::string & system) {
    OGRSpatialReference reference;
    reference.SetFromUserInput(system.c_str());
    char * text = nullptr;
    reference.exportToWkt(&text);
    const std::string result = text;
    CPLFree(text);
    return result;
}
