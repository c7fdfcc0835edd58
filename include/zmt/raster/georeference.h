#pragma once

#include <string>

namespace ZMT::RASTER {

/// How the map coordinates of a raster or image are to be understood.
struct GeoReference {
    /// False: the file says nothing about its place, and positions count pixels.
    bool isGeoreferenced = false;
    /// The coordinate system as WKT; empty where it is not known.
    std::string wkt;
    /// A short name of the coordinate system for people; empty where it is not known.
    std::string name;
    /// Coordinates are angles; x is the longitude, y the latitude.
    bool isGeographic = false;
    /// Metres, or degrees for geographic systems, in one unit of x and y; 1 where it is not known.
    double unit = 1.0;
    /// Name of that unit, such as "metre" or "degree"; empty where it is not known.
    std::string unitName;
};

} // namespace ZMT::RASTER
